// A relay between a client and the service, on a free port of 127.0.0.1, that can do to a connection what networks do.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace kv::test {

class Relay {
public:
    /// Passes everything on to this port of 127.0.0.1.
    explicit Relay(int target);
    ~Relay();
    Relay(Relay const&) = delete;
    Relay& operator=(Relay const&) = delete;

    std::string url() const;
    /// The connections that there are carry nothing any more, and stay open.
    void goSilent();
    /// The clients of all connections that there are receive these bytes, and then a reset.
    void breakOff(std::string_view lastBytes);
    /// How many connections were broken so far.
    int broken() const { return broken_; }

private:
    struct Link;
    void acceptAll();
    void serve(Link& link);

    int const target_;
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<bool> isEnding_{false};
    std::atomic<int> broken_{0};
    std::mutex mutex_;
    std::list<Link> links_;  // guarded by mutex_

    std::thread acceptor_;
};

}  // namespace kv::test
