// Where the chat meets its user: lines in, lines out. Lines that are printed do not tear the prompt apart. On a
// terminal there is line editing; otherwise lines are read as they are, and printed without colours.
#pragma once

#include "Platform/KvMainQueue.h"
#include "console/InputLines.h"
#include "console/chat/LineEditor.h"

#include <array>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv::console {

enum class Style { plain, notice, warning, name };

struct Span {
    Style style;
    std::string_view text;
};

class Terminal {
public:
    /// Make it before any thread: those that are made later leave the signals to it.
    explicit Terminal(std::shared_ptr<KvMainQueue> queue);
    ~Terminal();
    Terminal(Terminal const&) = delete;
    Terminal& operator=(Terminal const&) = delete;

    bool isInteractive() const { return isInteractive_; }
    void setPrompt(std::string_view prompt);
    /// What Tab makes of the last word of a text.
    void setCompletions(std::function<std::vector<std::string>(std::string_view before)> completions);
    /// Prints one line. The texts may come from anywhere: control characters are shown, not obeyed.
    void print(std::initializer_list<Span> spans);

    /// The next line; runs the queue meanwhile. Absent at the end of input and once stopped.
    std::optional<std::string> readLine();
    /// Runs the queue until `isDone`, or until stopped.
    void waitUntil(std::function<bool()> const& isDone);
    /// Ends the waiting for input, as Ctrl-C does.
    void stop() { isStopped_ = true; }
    bool isStopped() const { return isStopped_; }

private:
    bool awaitInput();
    bool turnOnce(int input);
    void onSignal();

    std::shared_ptr<KvMainQueue> const queue_;
    bool const hasColours_;
    bool const isInteractive_;
    int const signals_;
    bool isStopped_ = false;
    InputLines lines_;                    // when there is no editor
    std::unique_ptr<LineEditor> editor_;  // when there is a terminal
};

}  // namespace kv::console
