// A server whose name means nothing for a while, and then another address.
#include "Session.h"
#include "SystemCalls.h"

namespace kv::test {
namespace {

class ServerName : public EveryEngine {};
ON_EVERY_ENGINE(ServerName);

TEST_P(ServerName, IsLookedUpForEachAttemptAndEachLogin) {
    Names names;
    names.set("127.0.0.1");
    LocalService before;
    Session session("http://pim.test:" + std::to_string(before.port()), GetParam(), Session::Time::manual);
    ASSERT_TRUE(session.begin());
    names.set("");
    before.kill();
    EXPECT_TRUE(session.waitForLoss());
    for (int turn = 0; turn < 100; ++turn) session.alice.queue->advance(200ms);  // attempts that find no address
    EXPECT_FALSE(session.isConnected());

    LocalService const after(LocalService::Options{before.port(), {"--host", "127.0.0.2"}});
    names.set("127.0.0.2");
    session.expectRestored(after, true);  // a second client, which logs in, must find it too
    EXPECT_EQ(session.alice.states, (States{{4, 5}, {3, 2}}));
}

}  // namespace
}  // namespace kv::test
