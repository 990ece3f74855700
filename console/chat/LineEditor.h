// A line that is typed in the terminal, with editing and history. While it waits for a key it lets others work, and
// they may print above the line.
#pragma once

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <histedit.h>

namespace kv::console {

class LineEditor {
public:
    /// `screen`: the terminal. `awaitKey` returns true when standard input can be read, and false when the line is to
    /// end.
    LineEditor(std::FILE* screen, std::function<bool()> awaitKey);
    ~LineEditor();
    LineEditor(LineEditor const&) = delete;
    LineEditor& operator=(LineEditor const&) = delete;

    /// Absent at the end of input, after Ctrl-D on an empty line, and when `awaitKey` said so.
    std::optional<std::string> readLine();
    void setPrompt(std::string prompt) { prompt_ = std::move(prompt); }
    /// What Tab makes of the last word of a text.
    using Completions = std::function<std::vector<std::string>(std::string_view before)>;
    void setCompletions(Completions completions) { completions_ = std::move(completions); }

    // For those who print while a line is edited: it goes, and comes back behind what was printed.
    void hide();
    void show();
    /// Gives the terminal back as it was found, until `resume`.
    void suspend();
    void resume();
    void onResized();

private:
    static char* promptOf(EditLine* editor);
    static int readKey(EditLine* editor, wchar_t* key);
    static unsigned char onTab(EditLine* editor, int key);
    static unsigned char onPaste(EditLine* editor, int key);
    static LineEditor& of(EditLine* editor);
    bool readKey(wchar_t& key);
    unsigned char complete();
    unsigned char paste();
    int rowOfCursor() const;

    std::FILE* const screen_;
    std::function<bool()> const awaitKey_;
    std::string prompt_ = "> ";
    Completions completions_;
    bool isEditing_ = false;
    History* history_;
    EditLine* editor_;
};

}  // namespace kv::console
