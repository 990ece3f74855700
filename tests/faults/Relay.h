// A relay between a client and the service, on a free port of 127.0.0.1, that can do to a connection what networks do.
#pragma once

#include "support/Listener.h"

namespace kv::test {

class Relay {
public:
    /// Passes everything on to this port of 127.0.0.1.
    explicit Relay(std::uint16_t target) : target_(target) {}

    std::string url() const { return "http://127.0.0.1:" + std::to_string(listener_.port()); }
    /// The connections that there are carry nothing any more, and stay open.
    void goSilent() { silent_ = connections_.load(); }

private:
    void pass(Connection& client);

    std::uint16_t const target_;
    std::atomic<int> connections_{0};
    std::atomic<int> silent_{0};  // so many of the connections, the first ones
    Listener const listener_{[this](Connection& client) { pass(client); }};
};

}  // namespace kv::test
