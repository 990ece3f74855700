// Another program, with its standard input and output on pipes. It does not outlive its object.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace kv::test {

class ChildProcess {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Throws std::system_error when it cannot be started.
    explicit ChildProcess(std::vector<std::string> const& command);
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    pid_t pid() const { return pid_; }
    /// Waits until all of it is in the pipe. False when nobody reads.
    bool write(std::string_view bytes);
    void closeInput();
    void closeOutput();
    void kill(int signal);
    /// Absent when the output ended before another line, or the deadline came.
    std::optional<std::string> readLine(Deadline deadline);
    /// The exit status; 128 and the number of the signal that ended it; absent when it has not ended at the deadline.
    std::optional<int> wait(Deadline deadline);

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string buffer_;
    std::optional<int> status_;
};

}  // namespace kv::test
