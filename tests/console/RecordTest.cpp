// Records of programs: of one that was killed, on a full disk, and what `kvpim show` makes of whatever it is given.
#include "console/Programs.h"
#include "support/LocalService.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

namespace kv::test {
namespace {

Program shown(std::string const& file, std::vector<std::string> const& options = {}) {
    std::vector<std::string> command{KVPIM_CLIENT, "show", file};
    command.insert(command.end(), options.begin(), options.end());
    return Program(command);
}

TEST(Record, OfAKilledProgramIsReadable) {
    LocalService const service;
    TemporaryDirectory const directory;
    auto const record = directory.path("r");
    {
        Program console(consoleCommand(service.url(), {"--record", record}));
        console.send(loginLine("alice"));
        ASSERT_TRUE(console.prints(R"({"id":"login","op":"loginByToken","code":0})"));
        console.send(R"({"op":"createChannelWithId","channelId":"room"})");
        console.send(R"({"op":"joinWithCompletion","id":1,"channelId":"room"})");
        ASSERT_TRUE(console.prints(R"({"id":1,*"code":0})"));
        console.send(R"({"op":"queryPeersOnlineStatus","id":2,"peerIds":["bob"]})");
        ASSERT_TRUE(console.prints(R"({"id":2,*})"));
        ASSERT_TRUE(waitUntil([&] { return contentOf(record).find("\"ended\":4,") != std::string::npos; }));
        console.kill(SIGKILL);
        EXPECT_EQ(console.exitStatus(), 128 + SIGKILL);
    }
    auto const whole = contentOf(record);
    makeFile(record, whole + whole.substr(whole.size() / 2, 30));  // and half a line
    auto all = shown(record);
    EXPECT_EQ(all.exitStatus(), 0);
    for (std::string_view const pattern :
         {"Record of \"demo\", begun *, contents masked", "*#1 *dialing  http://127.0.0.1:*&token=*",
          "*call 1  loginByToken ended after * ms with 0", R"(*#1 *->  join {"channelId":"room"}*)",
          R"(*#1 *<-  answer 0 to join after * ms {"result":0})"})
        EXPECT_TRUE(all.prints(pattern));

    // An answer that never came.
    std::string cut;
    for (auto const& line : linesOf(record))
        if (line.find(R"("type":"ack","id":1)") == std::string::npos) cut += line + '\n';
    makeFile(record, cut);
    auto requests = shown(record, {"--only", "requests", "--grep", "ueryPeersOnlineStatus", "--connection", "1"});
    EXPECT_EQ(requests.exitStatus(), 0);
    EXPECT_TRUE(requests.prints("*->  queryPeersOnlineStatus *"));
    EXPECT_TRUE(requests.prints("*queryPeersOnlineStatus of * was not answered"));
    EXPECT_TRUE(requests.prints("Record of *"));
    EXPECT_TRUE(requests.otherLines().empty()) << requests.otherLines().front();
}

TEST(Record, EndsOnAFullDiskAndTheClientGoesOn) {
    LocalService const service;
    TemporaryDirectory const directory;
    auto command = consoleCommand(service.url(), {"--record", directory.path("r"), "--log-filters", "4"});
    command.insert(command.begin(), {"sh", "-c", "trap '' XFSZ; ulimit -f 4; exec \"$@\" 2>&1", "sh"});
    Program console(command);
    console.send(loginLine("alice"));
    ASSERT_TRUE(console.prints(R"({"id":"login","op":"loginByToken","code":0})"));
    for (int i = 0; i < 20; ++i) console.send(R"({"op":"getUserAttributes","id":1,"userId":"alice"})");
    EXPECT_TRUE(console.prints("*recording has ended: cannot write *"));
    console.send(R"({"op":"getUserAttributes","id":2,"userId":"alice"})");
    EXPECT_TRUE(console.prints(R"({"id":2,"op":"getUserAttributes","code":0*)"));
    for (auto const& line : linesOf(directory.path("r"))) EXPECT_EQ(line.back(), '}');
}

TEST(Record, ShowSurvivesEverything) {
    std::string const header =
        R"({"format":"kvpim-record","version":1,"library":"1","started":"s","appId":"a","contents":"masked","part":1})"
        "\n";
    std::string garbage;
    for (int i = 0; i < 20'000; ++i) garbage += static_cast<char>(i * 7919 >> 3);
    struct Case {
        char const* what;
        std::string content;
        int status;
        std::string_view printed;
    };
    std::vector<Case> const cases = {
        {"nothing", "", 1, ""},
        {"garbage", garbage, 1, ""},
        {"another file", "{\"name\":1}\n[]\n", 1, ""},
        {"a newer version",
         R"({"format":"kvpim-record","version":2})"
         "\n",
         1, ""},
        {"garbage within", header + garbage + "\n{\"t\":1,\"client\":1,\"life\":\"open\"}\n", 0, "*1.000000*open"},
        {"too deep", header + std::string(100'000, '[') + "\n", 0, "Record of \"a\"*"},
        {"wrong types",
         header + R"({"t":1,"client":"x","connection":-1,"in":{"type":7,"id":[],"data":{}}})"
                  "\n"
                  R"({"t":2,"in":[]})"
                  "\n"
                  R"({"t":"now","life":"open"})"
                  "\n"
                  R"({"t":3,"call":1e300,"method":null})"
                  "\n",
         0, "*1.000000*"},
        {"what moves the cursor",
         header + R"({"t":1,"client":1,"life":"lost","reason":"a\u001b[2Jb\u202ec"})"
                  "\n",
         0, "*lost  a^[[2Jb<U+202E>c"},
    };
    TemporaryDirectory const directory;
    for (auto const& one : cases) {
        makeFile(directory.path("r"), one.content);
        auto program = shown(directory.path("r"));
        EXPECT_EQ(program.exitStatus(), one.status) << one.what;
        if (one.printed.empty()) {
            EXPECT_TRUE(program.otherLines().empty()) << one.what;
        } else {
            EXPECT_TRUE(program.prints(one.printed)) << one.what;
        }
    }
    EXPECT_EQ(shown(directory.path("none")).exitStatus(), 1);
}

// Records of real clients of the local service.
TEST(Record, ReplaysAsItWas) {
    struct Case {
        std::string name;
        std::string_view done;               // what the client is seen to do again
        std::string_view without, replaced;  // a line of the record with this text is left out, or this in its place
        std::string_view differs;
    };
    for (auto const& one :
         std::vector<Case>{{"reconnection", R"(*-> subscribePeersOnlineStatus {"userIds":["bob"]})", R"("life":"open")",
                            "", "*does not send, on connection 2, *: join *"},
                           {"kick_off", "*call * joinWithCompletion ends with 0", R"(["disconnectReason","KickOff"])",
                            "", "*connects once more than in the record"},
                           {"burst", "*sendMessageToPeer ends with 5", R"("code":5)", R"("code":0)",
                            "*sendMessageToPeer ends with 5, and in the record with 0"}}) {
        auto const record = std::string(TRANSCRIPTS) + "records/" + one.name + ".record";
        Program same({KVPIM_CLIENT, "replay", record});
        EXPECT_EQ(same.exitStatus(), 0) << one.name;
        EXPECT_TRUE(same.prints(one.done));
        EXPECT_TRUE(same.prints("The same as in the record."));

        TemporaryDirectory const directory;
        std::string changed;
        for (auto line : linesOf(record)) {
            auto const at = line.find(one.without);
            bool const isLeftOut = at != std::string::npos && one.replaced.empty() &&
                                   line.find("\"connection\":1,\"life\"") == std::string::npos;
            if (at != std::string::npos && !one.replaced.empty()) line.replace(at, one.without.size(), one.replaced);
            if (!isLeftOut) changed += line + '\n';
        }
        makeFile(directory.path("r"), changed);
        Program other({KVPIM_CLIENT, "replay", "--quiet", directory.path("r")});
        EXPECT_EQ(other.exitStatus(), 1) << one.name;
        EXPECT_TRUE(other.prints(one.differs));
    }
    EXPECT_EQ(Program({KVPIM_CLIENT, "replay", std::string(TRANSCRIPTS) + "session.txt"}).exitStatus(), 2);
}

}  // namespace
}  // namespace kv::test
