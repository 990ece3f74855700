#include "console/chat/Terminal.h"

#include "console/Colours.h"
#include "console/QueueLoop.h"
#include "console/chat/SafeText.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <sys/signalfd.h>
#include <unistd.h>

namespace kv::console {
namespace {

constexpr std::size_t kLongestLine = 1u << 20;

int takeSignals(bool isInteractive) {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    if (isInteractive) {
        for (int const signal : {SIGWINCH, SIGTSTP}) sigaddset(&set, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// What Ctrl-Z does by default, also where no shell would wake the process up again: nothing.
void sleepAsTold() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTSTP);
    std::raise(SIGTSTP);
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::string_view codeOf(Style style) {
    switch (style) {
        case Style::notice:
            return "\x1b[2m";
        case Style::warning:
            return "\x1b[31m";
        case Style::name:
            return "\x1b[1;36m";
        case Style::plain:
            break;
    }
    return "";
}

}  // namespace

Terminal::Terminal(std::shared_ptr<KvMainQueue> queue)
    : queue_(std::move(queue)),
      hasColours_(wantsColours()),
      isInteractive_(::isatty(STDIN_FILENO) == 1 && obeysEscapes()),
      signals_(takeSignals(isInteractive_)),
      lines_(STDIN_FILENO, kLongestLine) {
    if (isInteractive_) editor_ = std::make_unique<LineEditor>(stdout, [this] { return awaitInput(); });
}

Terminal::~Terminal() {
    editor_ = nullptr;
    ::close(signals_);
}

void Terminal::setPrompt(std::string_view prompt) {
    if (!editor_) return;
    editor_->hide();
    editor_->setPrompt(harmless(prompt));
    editor_->show();
}

void Terminal::setCompletions(std::function<std::vector<std::string>(std::string_view before)> completions) {
    if (editor_) editor_->setCompletions(std::move(completions));
}

void Terminal::print(std::initializer_list<Span> spans) {
    std::string line;
    for (auto const& span : spans) {
        std::string_view const code = hasColours_ ? codeOf(span.style) : "";
        line.append(code).append(harmless(span.text)).append(code.empty() ? "" : "\x1b[0m");
    }
    if (editor_) editor_->hide();
    std::fprintf(stdout, "%s\n", line.c_str());
    if (editor_) editor_->show();
    if (std::fflush(stdout) != 0) stop();  // nobody reads any more
}

std::optional<std::string> Terminal::readLine() {
    if (isStopped_) return std::nullopt;
    if (editor_) {
        auto line = editor_->readLine();
        if (!line) std::fputs("\n", stdout);  // off the prompt
        return line;
    }
    while (true) {
        if (auto line = lines_.next(); line && !line->isTooLong) return std::move(line->text);
        if (lines_.isEnded() || !awaitInput()) return std::nullopt;
        lines_.fill();
    }
}

void Terminal::waitUntil(std::function<bool()> const& isDone) {
    while (!isStopped_ && !isDone()) turnOnce(-1);
}

bool Terminal::awaitInput() {
    while (!isStopped_) {
        if (turnOnce(STDIN_FILENO)) return !isStopped_;
    }
    return false;
}

// Whether the input can be read.
bool Terminal::turnOnce(int input) {
    std::array<pollfd, 2> others{
        {{.fd = signals_, .events = POLLIN, .revents = 0}, {.fd = input, .events = POLLIN, .revents = 0}}};
    turn(*queue_, others);
    if (others[0].revents != 0) onSignal();
    return others[1].revents != 0;
}

void Terminal::onSignal() {
    signalfd_siginfo signal{};
    if (::read(signals_, &signal, sizeof signal) != sizeof signal) return;
    if (signal.ssi_signo == SIGWINCH) {
        editor_->onResized();
    } else if (signal.ssi_signo == SIGTSTP) {
        editor_->suspend();
        sleepAsTold();
        editor_->resume();
    } else {
        stop();
    }
}

}  // namespace kv::console
