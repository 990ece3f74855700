// Every operation in every callback, and the end of the client in each of them and wherever it waits for something.
// What these tests look for is found by the sanitizers; the application, which is the fuzzers', also ends the process
// when a completion is not called as often as its operation says, or a delegate of a client that is gone.
#include "fuzz/support/Application.h"
#include "fuzz/support/Network.h"
#include "fuzz/support/ServerScript.h"
#include "support/Test.h"

#include <sstream>

namespace kv::fuzz {
namespace {

// The operations (see Application.cpp) that complete, and all; those that end the session come last.
// Tasks, which are last there, must not run the queue.
std::string const kCompleting = "abcdefghijklmnopqrstuvwxyz1234AB76H";
std::string const kEverything = "abcdefghijklmnopqrstuvwxyz1234ABDEFHJK085C76";
constexpr char kRunQueue = 'G', kDestroy = '9', kCancel = 'L';
constexpr char kAfterTheEnd[] = "abcdB1";

std::string const kLogin = ">5\nD\nL\n>D\n>a\nA[{\"result\":0}]\n";
std::string const kOpen = R"(0{"sid":"engine","pingInterval":3600000,"pingTimeout":3600000})";
std::string const kBuiltUp =
    kLogin + ">m\nA[{\"result\":0}]\n>w\nA[{\"result\":0}]\n>s\nA[{\"result\":0}]\n#\n+1000\nL\n";

/// What leads to a callback; in place of "@" comes what is done in it.
struct Callback {
    char const* name;
    std::string script;
};

Callback afterLogin(char const* name, std::string const& line) { return {name, kLogin + "@\n" + line}; }

std::vector<Callback> callbacks() {
    std::string const refusal = "\n42[\"disconnectReason\",\"loginFail: AuthFail\"]\n", hangUp = "#\n+1000";
    std::vector<Callback> list{
        {"2,1", "@\n>5\nD\nL"},
        {"3,2", ">5\nD\n@\nL"},
        {"login", ">5\nD\n@,\nL"},
        {"1,3", ">5\nD\n" + kOpen + "\n40{\"sid\":\"s\"}" + refusal + "@,\n41"},
        {"refused login", ">5\nD\n" + kOpen + "\n40{\"sid\":\"s\"}" + refusal + "@\n41"},
        {"1,4", ">5\nD\n@\n+6000"},
        {"late login", ">5\nD\n@,\n+6000"},
        {"1,6", kLogin + "@\n>6"},
        {"logout", kLogin + "@,\n>6"},
        {"1,8", kLogin + "42[\"disconnectReason\",\"KickOff\"]\n@\n41"},
        {"4,5", kLogin + "@\n" + hangUp},
        {"3,2 again", kLogin + hangUp + "\n@\nL"},
        afterLogin("tokenDidExpire", R"(42["disconnect","loginFail: ExpiredToken"])"),
        afterLogin("messageReceived",
                   R"(42["MessageToPeerReceived",{"msgs":[{"content":{"text":"x"}},{"content":{"text":"y"}}]}])"),
        afterLogin("peersOnlineStatusChanged", R"(42["PeersOnlineStatusChanged",{"status":{"bob":0}}])"),
        afterLogin("peersUserAttributesChanged",
                   R"(42["PeersUserAttributesChanged",{"attributes":{"bob":{"attributes":{"k":"v"}}}}])"),
        afterLogin("memberJoined", R"(42["MemberJoined",{"channelId":"room","userId":"bob"}])"),
        afterLogin("memberLeft", R"(42["MemberLeft",{"channelId":"room","userId":"bob"}])"),
        {"memberLeftWithReason", kLogin + "@,\n42[\"MemberLeft\",{\"channelId\":\"room\",\"userId\":\"bob\"}]"},
        afterLogin(
            "channel messageReceived",
            R"(42["ChannelMessageReceived",{"from":{"channelId":"room","userId":"bob"},"content":{"text":"x"}}])"),
        afterLogin("attributeUpdate", R"(42["ChannelAttributesUpdated",{"channelId":"room","attributes":{}}])"),
        afterLogin("memberCount", R"(42["ChannelMemberCount",{"counts":{"room":2,"hall":3}}])"),
        {"invitationFailed, in time", kLogin + ">1\nA[{\"result\":0}]\n+30000\n2\n@\n+30000"},
    };
    for (char const* state : {"1", "2", "3", "4", "5"}) {
        list.push_back(
            afterLogin("invitation", R"(42["InvitationNotify",{"invitation":{"inviter":"bob","invitee":"me","state":)" +
                                         std::string(state) + "}}]"));
    }
    return list;
}

void playAll(std::string const& script, Application& app) {
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);) play(line, app);
}

/// The server does what everybody waits for, and then goes; all that was begun must have ended.
void finish(Application& app) {
    playAll("D\nL\nA[{\"result\":0}]\n#\n+1000\nD\nL\n#", app);
    app.finish();
}

/// Plays the script, with the turn in the callback.
void play(Callback const& callback, std::string const& turn) {
    {
        SCOPED_TRACE(callback.name + (": " + turn));
        auto script = callback.script;
        auto const at = script.find("@");
        script.insert(script[at + 1] == ',' ? at + 2 : at + 1, turn);
        Application app;
        playAll(script, app);
        EXPECT_FALSE(app.awaitsCallback()) << "it never came";
        finish(app);
    }
    endInput();
}

std::vector<std::string> turnsOfEverything() {
    std::string const ended = kDestroy + std::string(kAfterTheEnd), run(1, kRunQueue);
    return {ended, kDestroy + run, kEverything, kEverything + run, kEverything + ended};
}

TEST(Lifetimes, EachOperationMayBeCalledInEachCallbackAndBeTheLast) {
    auto turns = turnsOfEverything();
    for (char const operation : kEverything) {
        turns.emplace_back(1, operation);
        turns.push_back(std::string{operation, kDestroy});
    }
    for (auto const& callback : callbacks()) {
        for (auto const& turn : turns) play(callback, turn);
    }
}

TEST(Lifetimes, EverythingMayBeDoneInEachCompletion) {
    for (char const operation : kCompleting) {
        auto const begun = std::string(">") + operation;
        for (auto const& turn : turnsOfEverything()) {
            play({"answered", kLogin + "@\n" + begun + "\nA[{\"result\":0}]\n+20000"}, turn);
            play({"refused inside the call", "@\n" + begun}, turn);
        }
    }
}

TEST(Lifetimes, AClientMayEndWhereverItWaits) {
    struct Wait {
        char const* name;
        std::string script;
        std::int64_t state;
    };
    std::string const join = "\n40{\"sid\":\"s\"}";
    for (auto const& [name, script, state] : std::vector<Wait>{
             {"discovery", ">5", 2},
             {"connecting", ">5\nD", 2},
             {"session", ">5\nD\n" + kOpen, 2},
             {"loginSuccess", ">5\nD\n" + kOpen + join, 2},
             {"answers", kLogin + ">a\n>d\n>m", 3},
             {"awaited login", ">I\nD", 2},
             {"tasks", kLogin + ">H\n>J\n>K", 3},
             {"tasks, further on", kLogin + ">J\n430[{\"result\":0}]\n431[{\"result\":0}]\n>K\n+5000", 3},
             {"reconnection delay", kLogin + "#", 1},
             {"reconnecting", kLogin + "#\n+1000", 4},
             {"loginSuccess again", kLogin + "#\n+1000\n" + kOpen + join, 4},
             {"restoring, unanswered", kBuiltUp, 3},
             {"restoring, refused", kBuiltUp + "430[{\"result\":1}]\n431[{\"result\":1}]\n432[{\"result\":1}]", 3},
         }) {
        for (std::string const& turn :
             {std::string{kDestroy}, std::string("6"), std::string{'6', kDestroy}, std::string{kCancel},
              std::string{kCancel, kDestroy}, std::string{kDestroy, kCancel}, kEverything, kEverything + kDestroy,
              kEverything + kCancel}) {
            SCOPED_TRACE(name + (": " + turn));
            {
                Application app;
                playAll(script, app);
                EXPECT_EQ(app.kit->stateManager().state, state);
                for (char const operation : turn) app.begin(operation, "text");
                for (char const operation : std::string(kAfterTheEnd)) app.begin(operation, "text");
                finish(app);
            }
            endInput();
        }
    }
}

}  // namespace
}  // namespace kv::fuzz
