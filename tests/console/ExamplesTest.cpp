// The examples beside the demonstration: the bot, and the main queue inside other loops.
#include "console/Programs.h"
#include "support/Service.h"

#include <chrono>
#include <optional>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace kv::test {
namespace {

using namespace std::chrono_literals;

TEST(Bot, AnswersKeepsItsPresenceAndComesBack) {
    Service service;
    Program bot(exampleCommand(KVPIM_BOT, {service.url(), "bot"}));
    ASSERT_TRUE(bot.prints("bot: connected"));
    ASSERT_TRUE(bot.prints("bot: told everybody that it is here"));

    Program alice(consoleCommand(service.url()));
    alice.send(loginLine("alice"));
    ASSERT_TRUE(alice.prints(R"(*"op":"loginByToken","code":0*)"));
    alice.send(R"({"op":"sendMessageToPeer","peerId":"bot","text":"hello"})");
    EXPECT_TRUE(alice.prints("*You said: hello*"));

    ASSERT_TRUE(service.drop("bot"));
    EXPECT_TRUE(bot.prints("bot: connection lost, reconnecting"));
    EXPECT_TRUE(bot.prints("bot: connected"));
    auto const isRestored = [&] {
        auto const state = service.state();
        return state.at("apps").at("demo").at("users").at("bot").at("attributes").as_object().contains("kind");
    };
    for (int tries = 0; tries < 100 && !isRestored(); ++tries) std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(isRestored());

    bot.interrupt();
    EXPECT_EQ(bot.exitStatus(), 0);
}

TEST(Bot, WaitsForAServiceThatIsDownAtItsStart) {
    auto first = std::make_optional<Service>();
    auto const address = first->url();
    auto const port = first->port();
    first.reset();
    Program bot(exampleCommand(KVPIM_BOT, {address, "bot"}));
    ASSERT_TRUE(bot.prints("bot: the login failed: error 9"));
    Service const service(port);
    EXPECT_TRUE(bot.prints("bot: told everybody that it is here"));
}

TEST(Loops, EachDrivesTheMainQueue) {
    Service service;
    std::istringstream loops(KVPIM_LOOPS);
    for (std::string loop; loops >> loop;) {
        Program program(exampleCommand(KVPIM_LOOP_PREFIX + loop, {service.url()}));
        EXPECT_EQ(program.exitStatus(), 0) << loop;
        EXPECT_TRUE(program.prints("alice says: Hello, loop")) << loop;
    }
}

}  // namespace
}  // namespace kv::test
