// The local service as a process of its own, with its control endpoints; for tests against the reference socket.io
// server.
#pragma once

#include "support/ChildProcess.h"

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/value.hpp>

namespace kv::test {

class LocalService {
public:
    struct Options {
        int port = 0;                          // 0 for a free one
        std::vector<std::string> arguments{};  // more of the service's own
    };

    /// Starts it; on `port`, or a free one. The test fails, and `url` is empty, when it does not get ready.
    explicit LocalService(int port = 0);
    explicit LocalService(Options const& options);

    std::string const& url() const { return url_; }
    std::uint16_t port() const;
    pid_t pid() const { return process_.pid(); }
    /// Ends it: at once, as a crash would, or by another signal.
    void kill(int signal = SIGKILL);
    /// Stops and continues the process, which then neither answers nor closes.
    void freeze();
    void thaw();

    boost::json::value state() const;
    /// The event reports that the collector has taken, oldest first.
    boost::json::array reports() const;
    void control(std::string const& path, boost::json::value const& body) const;
    /// Cuts a user's connection, without a word. False when there was none.
    bool drop(std::string const& userId) const;
    /// The answer that the next command of this name gets: a list of items, or null for silence.
    void answer(std::string const& command, boost::json::value const& items) const;
    /// Emits an event to a user.
    void emit(std::string const& userId, std::string const& event, boost::json::value const& item) const;

private:
    ChildProcess process_;  // ends with its input, so it never outlives the test
    std::string url_;
};

}  // namespace kv::test
