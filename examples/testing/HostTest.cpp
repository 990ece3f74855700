// Tests of the bot: no server, no network, no waiting. Time goes by when a test says so.
#include "Host.h"

#include <KvPim/TestKit/Service.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using kv::test::Service;

namespace {

// Somebody who visits.
class Guest {
public:
    Guest(Service& service, std::string user) : service_(service) {
        heard_->messageReceived = [this](kv::KvPimChannel&, std::shared_ptr<kv::KvPimMessage> message,
                                         kv::KvPimMember const&) { heard = message->text.value_or(""); };
        client_ = kv::KvPimKit::initWithAppId("hosts", std::weak_ptr<kv::KvPimDelegate>(), service.options());
        client_->loginByToken(kv::test::kToken, 1, user, [](std::int64_t) {});
        service.settle();
        room_ = client_->createChannelWithId("lounge", heard_);
    }
    void comeIn() {
        room_->joinWithCompletion([](std::int64_t) {});
        service_.settle();
    }
    void leave() {
        room_->leaveWithCompletion([](std::int64_t) {});
        service_.settle();
    }

    std::string heard;

private:
    Service& service_;
    std::shared_ptr<kv::KvPimChannelDelegate> heard_ = std::make_shared<kv::KvPimChannelDelegate>();
    std::shared_ptr<kv::KvPimKit> client_;
    std::shared_ptr<kv::KvPimChannel> room_;
};

struct HostTest : testing::Test {
    Service service;
    kv::test::Clock clock = service.clock();
    std::string token = kv::test::kToken;
    Host host{"host", "lounge", [this](std::string const&) { return token; }, service.options()};

    void SetUp() override {
        host.start();
        service.settle();
    }
};

TEST_F(HostTest, WelcomesGuestsAndCountsThem) {
    Guest alice(service, "alice");
    alice.comeIn();
    EXPECT_EQ(alice.heard, "Hello, alice");
    alice.leave();
    alice.comeIn();
    EXPECT_EQ(alice.heard, "Welcome back, alice");
    EXPECT_EQ(host.visits("alice"), 2);
    EXPECT_EQ(service.channelAttributes("lounge")["alice"], "2");
}

TEST_F(HostTest, IsBackWhenTheConnectionWasLost) {
    service.cut("host");
    service.settle();
    EXPECT_FALSE(service.isOnline("host"));
    clock.advance(1s);
    EXPECT_TRUE(service.isOnline("host"));
    EXPECT_EQ(service.members("lounge"), std::vector<std::string>{"host"});
    EXPECT_EQ(service.requests("join", "host").size(), 2u);
}

TEST_F(HostTest, AsksForANewTokenWhenItHasExpired) {
    service.expireToken(token);
    token = std::string(32, 'n');
    service.cut("host");
    clock.advance(10s);
    EXPECT_TRUE(service.isOnline("host"));
}

TEST(Host, KeepsTryingUntilItIsLetIn) {
    Service service;
    service.refuseNextLogin("loginFail: AuthFail");
    service.refuseNext("joinChannel", 6);
    Host host(
        "host", "lounge", [](std::string const&) { return kv::test::kToken; }, service.options());
    host.start();
    service.settle();
    EXPECT_FALSE(host.trouble().empty());
    service.clock().advance(5s);
    EXPECT_TRUE(service.isOnline("host"));
    EXPECT_FALSE(host.isOpen());
    service.clock().advance(5s);
    EXPECT_TRUE(host.isOpen());
    EXPECT_EQ(host.trouble(), "");
}

}  // namespace
