// The examples beside the demonstration: the bot, and the main queue inside other loops.
#include "console/Programs.h"
#include "support/Service.h"

#include <sstream>

#include <gtest/gtest.h>

namespace kv::test {
namespace {

TEST(Bot, AnswersKeepsItsPresenceAndComesBack) {
    Service service;
    Program bot({KVPIM_BOT, service.url(), "bot"});
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
    alice.send(R"({"op":"getUserAttributes","userId":"bot"})");
    EXPECT_TRUE(alice.prints(R"(*"key":"kind","value":"bot"*)"));

    bot.interrupt();
    EXPECT_EQ(bot.exitStatus(), 0);
}

TEST(Loops, EachDrivesTheMainQueue) {
    Service service;
    std::istringstream loops(KVPIM_LOOPS);
    for (std::string loop; loops >> loop;) {
        Program program({KVPIM_LOOP_PREFIX + loop, service.url()});
        EXPECT_EQ(program.exitStatus(), 0) << loop;
        EXPECT_TRUE(program.prints("alice says: Hello, loop")) << loop;
    }
}

}  // namespace
}  // namespace kv::test
