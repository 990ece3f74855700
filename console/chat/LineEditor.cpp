#include "console/chat/LineEditor.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace kv::console {
namespace {

constexpr int kHistorySize = 500;

int columnsOf(wchar_t character) {
    int const columns = ::wcwidth(character);
    return columns < 0 ? 2 : columns;  // a control character is shown as "^X"
}

int columnsOf(std::string const& text) {
    std::wstring wide(text.size(), L'\0');
    char const* from = text.c_str();
    std::mbstate_t state{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): safe with a state of one's own
    auto const length = std::mbsrtowcs(wide.data(), &from, wide.size(), &state);
    if (length == static_cast<std::size_t>(-1)) return static_cast<int>(text.size());
    int columns = 0;
    for (std::size_t i = 0; i < length; ++i) columns += columnsOf(wide[i]);
    return columns;
}

}  // namespace

LineEditor::LineEditor(std::FILE* screen, std::function<bool()> awaitKey)
    : screen_(screen), awaitKey_(std::move(awaitKey)), history_(history_init()) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the other threads do not ask for the locale
    if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1) std::setlocale(LC_CTYPE, "C.UTF-8");
    HistEvent event;
    history(history_, &event, H_SETSIZE, kHistorySize);
    history(history_, &event, H_SETUNIQUE, 1);
    editor_ = el_init("kvpim", stdin, screen, screen);
    el_set(editor_, EL_CLIENTDATA, this);
    el_set(editor_, EL_PROMPT, &LineEditor::promptOf);
    el_set(editor_, EL_EDITOR, "emacs");
    el_set(editor_, EL_HIST, history, history_);
    el_set(editor_, EL_GETCFN, static_cast<int (*)(EditLine*, wchar_t*)>(&LineEditor::readKey));
}

LineEditor::~LineEditor() {
    el_end(editor_);
    history_end(history_);
}

std::optional<std::string> LineEditor::readLine() {
    int count = 0;
    char const* const typed = el_gets(editor_, &count);
    isEditing_ = false;
    if (typed == nullptr || count <= 0) return std::nullopt;
    std::string line(typed, static_cast<std::size_t>(count));
    line.erase(std::find_if(line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }), line.end());
    HistEvent event;
    if (!line.empty()) history(history_, &event, H_ENTER, line.c_str());
    return line;
}

void LineEditor::hide() {
    if (!isEditing_) return;
    if (int const row = rowOfCursor(); row > 0) std::fprintf(screen_, "\x1b[%dA", row);
    std::fputs("\r\x1b[J", screen_);
}

void LineEditor::show() {
    std::fflush(screen_);
    if (isEditing_) el_set(editor_, EL_REFRESH);
}

void LineEditor::suspend() {
    hide();
    std::fflush(screen_);
    el_set(editor_, EL_PREP_TERM, 0);
}

void LineEditor::resume() {
    if (isEditing_) el_set(editor_, EL_PREP_TERM, 1);
    show();
}

void LineEditor::onResized() {
    hide();
    el_resize(editor_);
    show();
}

char* LineEditor::promptOf(EditLine* editor) {
    LineEditor* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return self->prompt_.data();
}

int LineEditor::readKey(EditLine* editor, wchar_t* key) {
    LineEditor* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return self->readKey(*key) ? 1 : 0;
}

bool LineEditor::readKey(wchar_t& key) {
    std::mbstate_t state{};
    isEditing_ = true;
    while (awaitKey_()) {
        char byte = 0;
        if (::read(STDIN_FILENO, &byte, 1) != 1) return false;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): safe with a state of one's own
        auto const length = std::mbrtowc(&key, &byte, 1, &state);
        if (length == static_cast<std::size_t>(-2)) continue;  // the character has more bytes
        if (length != static_cast<std::size_t>(-1)) return true;
        state = {};
    }
    return false;
}

int LineEditor::rowOfCursor() const {
    winsize size{};
    if (::ioctl(::fileno(screen_), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 0;
    auto const* const line = el_wline(editor_);
    int columns = columnsOf(prompt_);
    for (auto const* c = line->buffer; c != line->cursor; ++c) columns += columnsOf(*c);
    return columns / size.ws_col;
}

}  // namespace kv::console
