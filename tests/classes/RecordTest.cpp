// What a record holds, and what it never holds; its bounds; what it is not written to.
#include "Classes/Await/KvResult.h"
#include "Classes/Model/KvFailure.h"
#include "Classes/Utils/Recording/KvRecordFile.h"
#include "classes/Person.h"

#include <fstream>
#include <numeric>

#include <sys/stat.h>

namespace kv::test {
namespace {

namespace json = boost::json;

std::string const kOtherToken = "fedcba9876543210fedcba9876543210";

std::function<void(KvPimOptions&)> recording(KvPimRecording record) {
    return [record](KvPimOptions& options) { options.recordTo = record; };
}

json::object parsed(std::string const& line) { return json::parse(line).as_object(); }

bool isWritten(std::string const& file, std::string_view text) {
    return waitUntil([&] { return contentOf(file).find(text) != std::string::npos; });
}

TEST(Record, HoldsNoTokenAndWhatPeopleSayOnlyIfWanted) {
    LocalService const service(LocalService::Options{.arguments = {"--control"}});
    for (bool const withContents : {false, true}) {
        TemporaryDirectory const directory;
        KvPimRecording record(directory.path("r"));
        record.withContents = withContents;
        Person alice(service.url(), "alice", KvMainQueue::create(), Engine::thread, recording(record));
        ASSERT_TRUE(alice.login());
        auto& kit = *alice.kit;
        auto const channel = alice.join("room");
        auto const say = [&](std::string text) {
            auto const bytes = makeData("bytes that SECRET are");
            auto const message = std::make_shared<KvPimRawMessage>(bytes, std::move(text));
            EXPECT_EQ(alice.codeOf([&](auto done) { kit.sendMessageToPeer(message, "alice", {}, done); }), 0);
            EXPECT_EQ(alice.codeOf([&](auto done) { channel->sendMessage(message, {}, done); }), 0);
        };
        say("a SECRET, and the token " + std::string(kToken));
        alice.codeOf([&](auto done) { kit.setLocalUserAttributes({{"mood", "SECRET"}, {"userId", "SECRET"}}, done); });
        alice.codeOf([&](auto done) { kit.getUserAttributes("alice", [done](auto&&, auto&&, auto c) { done(c); }); });
        auto const invitation = std::make_shared<KvPimInvitation>();
        invitation->inviter = "alice";
        invitation->invitee = "bob";
        invitation->requestInfo = "SECRET";
        alice.codeOf([&](auto done) { kit.getPimInvitationKit()->sendInvitation(invitation, done); });
        service.emit("alice", "Unheard", json::value{"SECRET", {{"text", "SECRET"}, {"token", kToken}}});
        ASSERT_TRUE(isWritten(record.file, "Unheard"));
        kit.renewToken(kOtherToken, 1, {});
        alice.kit = nullptr;
        ASSERT_TRUE(isWritten(record.file, R"("life":"gone")"));

        auto const text = contentOf(record.file);
        for (auto const& token : {std::string(kToken), kOtherToken}) EXPECT_EQ(text.find(token), std::string::npos);
        EXPECT_EQ(text.find("SECRET") != std::string::npos, withContents);
        EXPECT_EQ(text.find("base64") != std::string::npos, withContents);
        struct stat status {};
        EXPECT_EQ(::stat(record.file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
        // The same texts and bytes, but for what is in them, and ids as they are.
        for (std::string_view const kept :
             {R"("userId":"alice")", R"("channelId":"room")", R"("inviter":"alice")", R"("mood":)", R"("bytes":21)",
              R"("target":"/socket.io/?EIO=4&transport=websocket&app=brivel&roomId=app&token=***")",
              R"(["command","sendChannelMessage",)",
              R"("method":"renewToken","payload":{"token":"********************************",)"})
            EXPECT_NE(text.find(kept), std::string::npos) << kept;
        for (auto const& line : linesOf(record.file)) parsed(line);
    }
}

TEST(Record, CallsTellWhatTheyEndedWith) {
    LocalService const service;
    TemporaryDirectory const directory;
    Person alice(service.url(), "alice", KvMainQueue::create(), Engine::thread, recording(directory.path("r")));
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->clearChannelAttributes("room", {}, done); }), 102);
    ASSERT_TRUE(alice.login());
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->subscribePeersOnlineStatus({}, done); }), 2);
    alice.join("room");
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->logoutWithCompletion(done); }), 0);
    alice.kit = nullptr;
    ASSERT_TRUE(isWritten(directory.path("r"), "gone"));
    std::map<std::int64_t, std::string> methods;
    std::vector<std::string> ended;
    for (auto const& text : linesOf(directory.path("r"))) {
        auto const line = parsed(text);
        if (line.contains("call")) methods[line.at("call").as_int64()] = line.at("method").as_string();
        if (line.contains("ended"))
            ended.push_back(methods[line.at("ended").as_int64()] + ' ' + json::serialize(line.at("code")));
    }
    EXPECT_EQ(ended,
              (std::vector<std::string>{"clearChannelAttributes 102", "loginByToken 0", "subscribePeersOnlineStatus 2",
                                        "joinWithCompletion 0", "logoutWithCompletion 0"}));
}

TEST(Record, IsARingOfTwoFiles) {
    TemporaryDirectory const directory;
    KvPimRecording record(directory.path("r"));
    record.maxBytes = 64u << 10;
    std::string problem;
    auto file = KvRecordFile::open(record, "app", problem);
    ASSERT_TRUE(file) << problem;
    for (int i = 0; i < 5000; ++i) file->add({.fields = {{"life", "line"}, {"number", i}}});
    file->add({.fields = {{"life", std::string(40'000, 'x')}}});  // more than a file may have
    file->add({.fields = {{"life", "last"}}});
    ASSERT_TRUE(isWritten(record.file, R"("last")"));
    std::int64_t number = 0, parts = 0;
    for (auto const& name : {record.file + ".1", record.file}) {
        EXPECT_LE(contentOf(name).size(), record.maxBytes / 2);
        auto const lines = linesOf(name);
        auto const header = parsed(lines.front());
        EXPECT_EQ(header.at("format").as_string(), "kvpim-record");
        EXPECT_TRUE(parts == 0 || header.at("part").as_int64() == parts + 1);
        parts = header.at("part").as_int64();
        for (auto const& text : lines) {
            auto const line = parsed(text);
            if (!line.contains("number")) continue;
            EXPECT_TRUE(number == 0 || line.at("number").as_int64() == number + 1) << number;
            number = line.at("number").as_int64();
        }
    }
    EXPECT_EQ(number, 4999);
    EXPECT_NE(contentOf(record.file).find(R"("lost":1)"), std::string::npos);
    EXPECT_EQ(entriesOf(directory.path()).size(), 2U);
}

// However slow the disk is: what is lost is counted.
TEST(Record, TellsWhatIsLost) {
    TemporaryDirectory const directory;
    KvPimRecording record(directory.path("r"));
    record.maxBytes = std::size_t{1} << 30;
    std::string problem;
    auto file = KvRecordFile::open(record, "app", problem);
    ASSERT_TRUE(file) << problem;
    auto const none = std::make_shared<std::vector<std::string> const>();
    std::string const packet = R"(42["event",")" + std::string(100'000, 'x') + "\"]";
    constexpr int kPackets = 600;
    for (int i = 0; i < kPackets; ++i)
        file->add({.kind = KvRecordEntry::Kind::received, .fields = {}, .text = packet, .rules = {false, none}});
    auto const counted = [&] {
        auto const lines = linesOf(record.file);
        return std::accumulate(lines.begin(), lines.end(), std::int64_t{0},
                               [](std::int64_t sum, auto const& line) -> std::int64_t {
                                   auto const lost = line.find(R"("lost":)");
                                   if (lost != std::string::npos) return sum + std::stoll(line.substr(lost + 7));
                                   return sum + (line.find(R"("in":)") != std::string::npos ? 1 : 0);
                               });
    };
    EXPECT_TRUE(waitUntil([&] { return counted() == kPackets; })) << counted();
}

TEST(Record, RefusesWhatItCannotWrite) {
    TemporaryDirectory const directory;
    makeFile(directory.path("letter"), "Dear Bob");
    std::filesystem::create_symlink(directory.path("letter"), directory.path("link"));
    std::filesystem::create_directory(directory.path("folder"));
    makeFile(directory.path("old"), "{\"format\":\"kvpim-record\"}\n");
    makeFile(directory.path("kept"), "{\"format\":\"kvpim-record\"}\n");
    makeFile(directory.path("kept.1"), "a diary");
    KvPimRecording small(directory.path("small"));
    small.maxBytes = 1000;
    KvPimRecording other(directory.path("shared"));
    other.withContents = true;
    struct Case {
        KvPimRecording record;
        std::string_view cause;  // empty where there is a client
    };
    KvPimOptions options;
    options.envConfig.apiServer = "http://127.0.0.1:9";
    options.envConfig.cachesDirectory = directory.path("caches");
    options.mainQueue = KvMainQueue::create();
    options.recordTo = directory.path("shared");
    auto const sharing = KvPimKit::create("app", options);
    for (auto const& [record, cause] : std::vector<Case>{{directory.path("none/r"), "No such file or directory"},
                                                         {directory.path("folder"), "is no plain file"},
                                                         {directory.path("letter"), "is there, and is no record"},
                                                         {directory.path("link"), "symbolic links"},
                                                         {directory.path("kept"), "is there, and is no record"},
                                                         {"/proc/record", "cannot write"},
                                                         {small, "64 KiB at least"},
                                                         {other, "with other options"},
                                                         {directory.path("shared"), ""},
                                                         {directory.path("old"), ""}}) {
        options.recordTo = record;
        auto const client = KvPimKit::create("app", options);
        auto const why = client ? "" : client.error().failure()->cause;
        EXPECT_EQ(client.has_value(), cause.empty()) << record.file;
        EXPECT_NE(why.find(cause), std::string::npos) << why;
        EXPECT_TRUE(!client || (*client)->options().recordTo.file == record.file);
    }
    EXPECT_EQ(contentOf(directory.path("letter")), "Dear Bob");
    EXPECT_EQ(contentOf(directory.path("kept.1")), "a diary");
    EXPECT_EQ(contentOf(directory.path("old.1")), "{\"format\":\"kvpim-record\"}\n");
    EXPECT_TRUE(isWritten(directory.path("shared"), R"("client":2)"));  // two clients, told apart
}

}  // namespace
}  // namespace kv::test
