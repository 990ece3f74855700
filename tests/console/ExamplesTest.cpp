// The examples: the demonstration, which shows what really arrived or says what did not; the bot; the first steps, and
// the main queue inside other loops.
#include "console/Programs.h"
#include "support/LocalService.h"
#include "support/Test.h"

#include <sstream>

namespace kv::test {
namespace {

TEST(Demo, EndsWellWithAService) {
    LocalService service;
    Program demo({KVPIM_DEMO, "--service", service.url(), "--control"});
    EXPECT_EQ(demo.exitStatus(), 0);
    EXPECT_TRUE(demo.prints("*bob*<- alice in garden: Welcome back!"));
    EXPECT_TRUE(demo.prints("*page*<- LoginResult, * times"));
    EXPECT_TRUE(demo.prints("All that was shown arrived."));
}

TEST(Demo, FailsWithoutOne) {
    Program demo({KVPIM_DEMO, "--service", kNobody});
    EXPECT_EQ(demo.exitStatus(), 1);
    EXPECT_FALSE(demo.prints("All that was shown arrived."));
}

TEST(Bot, AnswersKeepsItsPresenceAndComesBack) {
    LocalService service;
    Program bot(exampleCommand(KVPIM_BOT, {service.url(), "bot"}));
    ASSERT_TRUE(bot.prints("bot: told everybody that it is here"));

    Program alice(consoleCommand(service.url()));
    alice.send(loginLine("alice"));
    ASSERT_TRUE(alice.prints(R"(*"op":"loginByToken","code":0*)"));
    alice.send(R"({"op":"sendMessageToPeer","peerId":"bot","text":"hello"})");
    EXPECT_TRUE(alice.prints("*You said: hello*"));

    ASSERT_TRUE(service.drop("bot"));
    EXPECT_TRUE(bot.prints("bot: KvPimConnectionStateReconnecting"));
    EXPECT_TRUE(bot.prints("bot: KvPimConnectionStateConnected"));
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
    auto first = std::make_optional<LocalService>();
    auto const address = first->url();
    auto const port = first->port();
    first.reset();
    Program bot(exampleCommand(KVPIM_BOT, {address, "bot"}));
    ASSERT_TRUE(bot.prints("bot: the login failed: No socket server was found*"));
    LocalService const service(port);
    EXPECT_TRUE(bot.prints("bot: told everybody that it is here"));
}

TEST(FirstSteps, SendAMessageAndReceiveItInEachLoop) {
    LocalService service;
    std::istringstream loops(KVPIM_LOOPS);
    std::string path = KVPIM_FIRST_STEPS;
    for (std::string loop; !path.empty(); path = loops >> loop ? KVPIM_LOOP_PREFIX + loop : "") {
        Program program(exampleCommand(path, {service.url()}));
        EXPECT_EQ(program.exitStatus(), 0) << path;
        EXPECT_TRUE(program.prints("alice says: Hello, *")) << path;
    }
}

}  // namespace
}  // namespace kv::test
