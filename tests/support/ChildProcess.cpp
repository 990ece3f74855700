#include "support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kv::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

void close(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> const& command) {
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category());
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (auto const& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    int const error = ::posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    output_ = out[0];
    if (error == 0) return;
    close(input_);
    close(output_);
    throw std::system_error(error, std::generic_category(), command[0]);
}

ChildProcess::~ChildProcess() {
    close(input_);
    close(output_);
    if (wait(Clock::now())) return;
    kill(SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

bool ChildProcess::write(std::string_view bytes) {
    std::signal(SIGPIPE, SIG_IGN);  // not before it has to be: the library under test must do without
    while (!bytes.empty()) {
        auto const count = ::write(input_, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void ChildProcess::closeInput() { close(input_); }

void ChildProcess::closeOutput() { close(output_); }

void ChildProcess::kill(int signal) {
    if (!status_) ::kill(pid_, signal);
}

std::optional<std::string> ChildProcess::readLine(Deadline deadline) {
    while (true) {
        if (auto const end = buffer_.find('\n'); end != std::string::npos) {
            auto line = buffer_.substr(0, end);
            buffer_.erase(0, end + 1);
            return line;
        }
        if (output_ < 0) return std::nullopt;
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left < 0ms) return std::nullopt;
        pollfd waiting{.fd = output_, .events = POLLIN, .revents = 0};
        if (::poll(&waiting, 1, static_cast<int>(left.count())) <= 0) continue;
        char part[65536];
        auto const count = ::read(output_, part, sizeof part);
        if (count <= 0) return std::nullopt;
        buffer_.append(part, static_cast<std::size_t>(count));
    }
}

std::optional<int> ChildProcess::wait(Deadline deadline) {
    int status = 0;
    while (!status_ && ::waitpid(pid_, &status, WNOHANG) != pid_) {
        if (Clock::now() > deadline) return std::nullopt;
        std::this_thread::sleep_for(2ms);
    }
    if (!status_) status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return status_;
}

}  // namespace kv::test
