// Where a session's token is written down: in two lines of the log, where the filter lets information through, in the
// event report of a login, and nowhere else.
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Session.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>

namespace kv::test {
namespace {

constexpr char kRenewedToken[] = "feedfacefeedfacefeedfacefeedface";

bool holdsToken(std::string const& line) {
    for (std::string const token : {kToken, kRenewedToken}) {
        // Half a token in a message that was cut is too much already.
        if (line.find(token.substr(0, 16)) != std::string::npos || line.find(token.substr(16)) != std::string::npos)
            return true;
    }
    return false;
}

// A session with all that writes to the log: refusals, a server that cannot be connected to, losses, a renewal. Sets
// the caches directory, which is the process's.
void liveThroughEverything(std::string& caches) {
    LocalService const service;
    Session session(service.url(), Engine::thread, Session::Time::manual);
    auto& alice = session.alice;
    caches = alice.cachesDirectory;
    service.control("login", {{"reason", "loginFail: InvalidToken"}});
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "alice", done); }), 5);
    ASSERT_TRUE(session.begin());
    service.answer("join", json::array{"Too Many Requests"});
    service.control("drop", {{"userId", "alice"}});
    EXPECT_TRUE(session.waitForLoss());
    session.expectRestored(service);
    service.emit("alice", "MessageToPeerReceived", {{"msgs", "not a list"}});
    alice.kit->renewToken(kRenewedToken, 2, {});
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->logoutWithCompletion(done); }), 0);

    // Servers that fail each step of a connection, whose request bears the token.
    ScriptedServer refusing([](ScriptedPeer& peer) { peer.send("HTTP/1.1 403 Forbidden\r\n\r\n"); });
    ScriptedServer breaking([](ScriptedPeer& peer) { peer.reset(); });
    ScriptedServer lying([](ScriptedPeer& peer) {
        peer.login();
        peer.sendText("42[");
        peer.readToEnd();
    });
    for (auto const* server : {&refusing, &breaking, &lying}) {
        Person bob(server->url(), "bob", alice.queue);
        std::int64_t code = -1;
        bob.kit->loginByToken(kToken, 1, "bob", [&](std::int64_t result) { code = result; });
        EXPECT_TRUE(session.waitFor([&] { return code >= 0; }));
        EXPECT_TRUE(session.waitFor([&] { return bob.kit->stateManager().state != KvPimConnectionStateConnected; }));
    }
}

TEST(Secrets, TheTokenIsLoggedWhereItIsSaidAndNowhereElse) {
    std::size_t lines = 0;
    std::string caches;
    for (std::int64_t const filter : {0, 1, 2, 8}) {
        TemporaryDirectory directory;
        auto const file = directory.path("session.log");
        makeFile(file, "");
        KvLog::shared().setLogFilePath(file);
        KvLog::shared().setLogFilter(filter);
        Printed printed;
        liveThroughEverything(caches);
        if (testing::Test::HasFailure()) {
            FAIL() << printed.out() << printed.error();
        }
        KvLog::shared().setLogFilter(0);
        KvLog::shared().drain();
        makeFile(directory.path("console"), printed.out() + printed.error());
        for (auto const* name : {"session.log", "console"}) {
            for (auto const& line : linesOf(directory.path(name))) {
                ++lines;
                if (!holdsToken(line)) continue;
                bool const isSaid = line.starts_with("socket config: ") ||
                                    line.starts_with("renewtoken and set socket config: ") ||
                                    line.starts_with("kv_pim_info_log:socket config: ") ||
                                    line.starts_with("kv_pim_info_log:renewtoken and set socket config: ");
                EXPECT_TRUE(isSaid && filter > 0) << "at filter " << filter << ": " << line;
            }
        }
    }
    EXPECT_GT(lines, 40u);

    LoganManager::sharedInstance().drain();
    int logins = 0;
    for (auto const& file : std::filesystem::recursive_directory_iterator(caches)) {
        if (!file.is_regular_file()) continue;
        for (auto const& line : linesOf(file.path())) {
            if (!holdsToken(line)) continue;
            ++logins;
            EXPECT_NE(line.find(R"(\"type\":\"StartLogin\")"), std::string::npos) << file.path() << ": " << line;
        }
    }
    EXPECT_GT(logins, 0);
}

}  // namespace
}  // namespace kv::test
