// The programs under test, each as a child process.
#pragma once

#include "support/ChildProcess.h"

#include <csignal>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace kv::test {

/// A program that is asked for the lines that it prints.
class Program {
public:
    explicit Program(std::vector<std::string> const& command);

    void send(std::string_view line);
    void write(std::string_view bytes);
    void closeInput() { process_.closeInput(); }
    void closeOutput() { process_.closeOutput(); }
    void interrupt() { process_.kill(SIGINT); }
    void kill(int signal) { process_.kill(signal); }
    /// Waits for a line like this, "*" standing for any text. Other lines stay for later.
    testing::AssertionResult prints(std::string_view pattern);
    /// Waits for the program's end: its exit status, or -1 when it does not end. What it printed can be asked for
    /// after.
    int exitStatus();
    /// The lines that were printed and not asked for.
    std::deque<std::string> const& otherLines() const { return lines_; }

private:
    ChildProcess process_;
    std::deque<std::string> lines_;
};

/// An address at which nobody listens.
inline constexpr char kNobody[] = "http://127.0.0.1:9";

/// `kvpim console` with these options behind the usual ones.
std::vector<std::string> consoleCommand(std::string const& apiServer, std::vector<std::string> const& options = {});
/// `kvpim chat` as this user.
std::vector<std::string> chatCommand(std::string const& apiServer, std::string const& user,
                                     std::vector<std::string> const& options = {});

/// A program that takes the user's directories, which are not those of whoever runs the test.
std::vector<std::string> exampleCommand(std::string const& program, std::vector<std::string> const& arguments);

std::string loginLine(std::string_view user);

}  // namespace kv::test
