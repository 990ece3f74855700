// The chat as a script uses it: lines in, lines out. What it draws in a terminal is not seen here.
#include "console/Programs.h"
#include "support/LocalService.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

namespace kv::test {
namespace {

class Chat : public testing::Test {
protected:
    /// A user of the same service, with whom the chat talks.
    void startPeer() {
        peer.send(loginLine("bob"));
        peer.send(R"({"op":"getPimInvitationKit"})");
        peer.send(R"({"op":"createChannelWithId","channelId":"garden"})");
        ASSERT_TRUE(peer.prints(R"({*"op":"loginByToken","code":0})"));
        peer.send(R"({"op":"joinWithCompletion","channelId":"garden"})");
        ASSERT_TRUE(peer.prints(R"({*"op":"joinWithCompletion","code":0})"));
    }

    LocalService service;
    Program peer{consoleCommand(service.url())};
};

TEST_F(Chat, FilesUpToTheLimitAreSent) {
    startPeer();
    TemporaryDirectory const directory;
    makeFile(directory.path("fits"), std::string(32'768, '\0'));
    makeFile(directory.path("too-long"), std::string(32'769, '\0'));
    Program chat(chatCommand(service.url(), "alice"));
    chat.send("/join garden");
    chat.send("/file " + directory.path("too-long"));
    EXPECT_TRUE(chat.prints("! a file may have 32,768 bytes; this one has 32769"));
    chat.send("/file " + directory.path());
    EXPECT_TRUE(chat.prints("! this is not a file*"));
    chat.send("/file " + directory.path("fits"));
    EXPECT_TRUE(peer.prints(R"({"event":"channel.messageReceived",*"type":2,"text":"fits","rawData":"AAAA*)"));
}

TEST_F(Chat, AScriptIsCarriedOutLineByLineAndLogsOut) {
    startPeer();
    Program chat(chatCommand(service.url(), "alice"));
    chat.write("/join garden\none\ntwo");
    chat.closeInput();
    EXPECT_EQ(chat.exitStatus(), 0);
    EXPECT_TRUE(peer.prints(R"({"event":"channel.messageReceived",*"text":"one"*)"));
    EXPECT_TRUE(peer.prints(R"({"event":"channel.messageReceived",*"text":"two"*)"));
    EXPECT_TRUE(chat.prints("* disconnected"));
    EXPECT_TRUE(peer.prints(R"({"event":"channel.memberLeftWithReason",*"alice"*)"));
}

TEST_F(Chat, ATerminalCompletesWordsAndTakesAPasteAsOneLine) {
    startPeer();
    std::string command = "TERM=xterm";
    for (auto const& word : chatCommand(service.url(), "alice")) command += " " + word;
    Program chat({"script", "-qec", command, "/dev/null"});
    ASSERT_TRUE(chat.prints("*Hello, alice*"));
    chat.write("/jo\tgarden\r");
    ASSERT_TRUE(chat.prints("*you are in garden*"));
    chat.write("/who\r");
    ASSERT_TRUE(chat.prints("*here: bob, alice*"));
    chat.write("/msg b\t\x1b[200~two\nlines\x1b[201~\r");
    EXPECT_TRUE(peer.prints(R"({"event":"messageReceived","peerId":"alice",*"text":"two lines"*)"));
    chat.write("/quit\r");
    EXPECT_EQ(chat.exitStatus(), 0);
}

TEST_F(Chat, AnInterruptLogsOutToo) {
    Program chat(chatCommand(service.url(), "alice"));
    ASSERT_TRUE(chat.prints("* Hello, alice*"));
    chat.interrupt();
    EXPECT_EQ(chat.exitStatus(), 0);
    EXPECT_TRUE(chat.prints("* disconnected"));
}

TEST_F(Chat, ALoginThatFailsIsToldInWords) {
    TemporaryDirectory const directory;
    makeFile(directory.path("token"), "short\n");
    Program refused(chatCommand(service.url(), "alice", {"--token-file", directory.path("token")}));
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_TRUE(refused.prints("! login at *: The token is invalid*"));

    Program unreached(chatCommand(kNobody, "alice"));
    EXPECT_EQ(unreached.exitStatus(), 1);
    EXPECT_TRUE(unreached.prints("! login at *: No socket server was found*"));

    Program kickedOut(chatCommand(service.url(), "alice"));
    ASSERT_TRUE(kickedOut.prints("* Hello, alice*"));
    peer.send(loginLine("alice"));
    EXPECT_EQ(kickedOut.exitStatus(), 1);
    EXPECT_TRUE(kickedOut.prints("! you have logged in somewhere else*"));
}

}  // namespace
}  // namespace kv::test
