#include "console/chat/Terminal.h"

#include "console/QueueLoop.h"
#include "console/chat/SafeText.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace kv::console {
namespace {

constexpr std::size_t kLongestLine = 1u << 20;

bool isTerminal() { return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1; }

int takeSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    if (isTerminal()) {
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

/// Standard output, for the chat alone: what the library prints there and on a terminal's standard error goes nowhere,
/// since it would tear the prompt apart.
std::FILE* takeOutput() {
    std::FILE* const screen = ::fdopen(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
    if (screen == nullptr) throw std::system_error(errno, std::generic_category(), "standard output");
    int const nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    if (::isatty(STDERR_FILENO) == 1) ::dup2(nowhere, STDERR_FILENO);
    ::close(nowhere);
    return screen;
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
      signals_(takeSignals()),
      // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets variables
      hasColours_(::isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr),
      isInteractive_(isTerminal()),
      screen_(takeOutput()),
      lines_(STDIN_FILENO, kLongestLine) {
    if (isInteractive_) editor_ = std::make_unique<LineEditor>(screen_, [this] { return awaitInput(); });
}

Terminal::~Terminal() {
    editor_ = nullptr;
    std::fclose(screen_);
    ::close(signals_);
}

void Terminal::setPrompt(std::string_view prompt) {
    if (!editor_) return;
    editor_->hide();
    editor_->setPrompt(harmless(prompt));
    editor_->show();
}

void Terminal::print(std::initializer_list<Span> spans) {
    std::string line;
    for (auto const& span : spans) {
        std::string_view const code = hasColours_ ? codeOf(span.style) : "";
        line.append(code).append(harmless(span.text)).append(code.empty() ? "" : "\x1b[0m");
    }
    if (editor_) editor_->hide();
    std::fprintf(screen_, "%s\n", line.c_str());
    if (editor_) editor_->show();
    if (std::fflush(screen_) != 0) stop();  // nobody reads any more
}

std::optional<std::string> Terminal::readLine() {
    if (isStopped_) return std::nullopt;
    if (editor_) {
        auto line = editor_->readLine();
        if (!line) std::fputs("\n", screen_);  // off the prompt
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
