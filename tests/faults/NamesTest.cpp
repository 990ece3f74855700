// A server whose name means nothing for a while, and then another address.
#include "Session.h"
#include "SystemCalls.h"

#include <array>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {
namespace {

class ServerName : public EveryEngine {};
ON_EVERY_ENGINE(ServerName);

TEST_P(ServerName, IsLookedUpForEachAttemptAndEachLogin) {
    Names names;
    names.set("127.0.0.1");
    Service before;
    Session session("http://pim.test:" + std::to_string(before.port()), GetParam(), Session::Time::manual);
    ASSERT_TRUE(session.begin());
    names.set("");
    before.kill();
    EXPECT_TRUE(session.waitForLoss());
    for (int turn = 0; turn < 100; ++turn) session.alice.queue->advance(200ms);  // attempts that find no address
    EXPECT_FALSE(session.isConnected());

    Service const after(Service::Options{before.port(), {"--host", "127.0.0.2"}});
    names.set("127.0.0.2");
    session.expectRestored(after, true);  // a second client, which logs in, must find it too
    EXPECT_EQ(session.alice.states, (States{{4, 5}, {3, 2}}));
}

// A listener whose queue is full: an attempt to connect is neither taken nor refused.
class Swallower {
public:
    explicit Swallower(int port) {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_loopback;
        address.sin6_port = htons(static_cast<std::uint16_t>(port));
        auto const* raw = reinterpret_cast<sockaddr const*>(&address);
        for (int& fd : fds_) fd = ::socket(AF_INET6, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        isListening_ = ::bind(fds_[0], raw, sizeof address) == 0 && ::listen(fds_[0], 0) == 0;
        for (std::size_t i = 1; i < fds_.size(); ++i) ::connect(fds_[i], raw, sizeof address);
    }
    ~Swallower() {
        for (int const fd : fds_) ::close(fd);
    }
    bool isListening() const { return isListening_; }

private:
    std::array<int, 6> fds_{};
    bool isListening_ = false;
};

TEST_P(ServerName, WithADeadAddressHoldsUpNobody) {
    Service const service;
    Swallower const dead(service.port());
    if (!dead.isListening()) GTEST_SKIP() << "this machine has no ::1";
    Names names;
    names.set("::1,127.0.0.1");
    Person alice("http://pim.test:" + std::to_string(service.port()), "alice", KvMainQueue::create(), GetParam());
    EXPECT_TRUE(alice.login());
    EXPECT_EQ(alice.states, (States{{2, 1}, {3, 2}}));  // and not (1, 4), of six seconds without a connection
}

}  // namespace
}  // namespace kv::test
