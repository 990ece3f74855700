// Three clients of the library talk to each other, and everything that they do is shown as it happens. Whatever should
// arrive and does not ends the demonstration with an error.
#include "Person.h"
#include "Service.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace {

using namespace demo;
using namespace std::chrono_literals;
using kv::KvPimInvitation;

constexpr char kAppId[] = "demo";
constexpr char kChannel[] = "garden";

struct Options {
    std::string service = "http://127.0.0.1:8600";
    bool hasControl = false;
    std::chrono::seconds stay{};
};

/// A directory for this run alone.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kvpim-demo-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw Failure("cannot make a temporary directory");
        path_ = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void says(Person& person, std::string const& text) {
    person.does("says in the channel: " + text, [&](Person::Done const& done) {
        person.channel().sendMessage(std::make_shared<kv::KvPimMessage>(text), std::nullopt, done);
    });
}

void writes(Person& person, std::string const& to, std::string const& text) {
    person.does("writes to " + to + ": " + text, [&](Person::Done const& done) {
        kv::KvPimSendMessageOptions const options{.enableOfflineMessaging = true};
        person.client().sendMessageToPeer(std::make_shared<kv::KvPimMessage>(text), to, options, done);
    });
}

void logOut(Person& person) {
    person.does("logs out", [&](Person::Done const& done) { person.client().logoutWithCompletion(done); });
    person.hears("logged out");
}

class Play {
public:
    Play(Stage const& stage, kv::KvPimOptions const& options)
        : stage_(stage),
          alice_(stage, "alice", kAppId, options),
          bob_(stage, "bob", kAppId, options),
          carol_(stage, "carol", kAppId, options) {}

    void run(Options const& options) {
        arrive();
        talk();
        sendBytes();
        shareAttributes();
        invite();
        leaveAndComeBack();
        if (options.hasControl) {
            Service const service(options.service);
            reconnect(service);
            report(service);
        } else {
            stage_.remark("(the service offers no control endpoints: no connection is cut, no report is asked for)");
        }
        if (options.stay.count() > 0) {
            stage_.remark("Everybody stays for a while. The service's page: " + options.service + "/");
            stage_.queue->runFor(options.stay);
        }
        stage_.scene("Good bye");
        logOut(alice_);
        logOut(bob_);
        logOut(carol_);
    }

private:
    void arrive() {
        stage_.scene("Three clients log in and join a channel");
        for (auto* const person : {&alice_, &bob_, &carol_}) person->logIn();
        alice_.enter(kChannel);
        bob_.enter(kChannel);
        alice_.hears("bob joins garden");
        carol_.enter(kChannel);
        alice_.hears("carol joins garden");
        bob_.hears("carol joins garden");
    }

    void talk() {
        stage_.scene("They talk: to everybody, and to one");
        says(alice_, "Good morning!");
        bob_.hears("alice in garden: Good morning!");
        carol_.hears("alice in garden: Good morning!");
        says(bob_, "Guten Morgen, 早上好 🌱");
        alice_.hears("bob in garden: Guten Morgen, 早上好 🌱");
        carol_.hears("bob in garden: Guten Morgen, 早上好 🌱");
        writes(bob_, "alice", "Is this only for me?");
        alice_.hears("bob: Is this only for me?");
        writes(alice_, "bob", "Only for you.");
        bob_.hears("alice: Only for you.");
    }

    void sendBytes() {
        stage_.scene("A message of bytes");
        kv::KvBytes bytes(32'768);
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 31 >> 3);
        auto const message = std::make_shared<kv::KvPimRawMessage>(kv::makeData(std::move(bytes)));
        alice_.does("sends " + describe(*message),
                    [&](Person::Done const& done) { alice_.channel().sendMessage(message, std::nullopt, done); });
        bob_.hears("alice in garden: " + describe(*message));
        carol_.hears("alice in garden: " + describe(*message));
    }

    void shareAttributes() {
        stage_.scene("An attribute of the channel changes");
        bob_.does("sets topic = roses, and has the members told", [&](Person::Done const& done) {
            bob_.client().setChannelAttributes(kChannel, {{"topic", "roses"}},
                                               {.enableNotificationToChannelMembers = true}, done);
        });
        alice_.hears("attributes of garden: topic = roses");
        carol_.hears("attributes of garden: topic = roses");
    }

    void invite() {
        stage_.scene("Invitations");
        invites(bob_, "Shall we plant a tree?");
        bob_.does("accepts", [&](Person::Done const& done) {
            bob_.invitation()->responseInfo = "With pleasure";
            bob_.invitations().acceptInvitation(bob_.invitation(), done);
        });
        alice_.hears("bob accepts: With pleasure");
        invites(carol_, "Shall we dig a pond?");
        carol_.does("refuses", [&](Person::Done const& done) {
            carol_.invitations().refuseInvitation(carol_.invitation(), done);
        });
        alice_.hears("carol refuses the invitation");
    }

    void invites(Person& guest, std::string const& text) {
        auto const invitation = KvPimInvitation::initWithInviter(alice_.name(), guest.name());
        invitation->requestInfo = text;
        alice_.does("invites " + guest.name() + ": " + text,
                    [&](Person::Done const& done) { alice_.invitations().sendInvitation(invitation, done); });
        guest.hears("alice invites: " + text);
    }

    void leaveAndComeBack() {
        stage_.scene("Presence: carol leaves, is written to, and comes back");
        alice_.does("subscribes to carol's status",
                    [&](Person::Done const& done) { alice_.client().subscribePeersOnlineStatus({"carol"}, done); });
        alice_.hears("carol is online");
        carol_.does("leaves the channel",
                    [&](Person::Done const& done) { carol_.channel().leaveWithCompletion(done); });
        alice_.hears("carol leaves garden");
        bob_.hears("carol leaves garden");
        logOut(carol_);
        alice_.hears("carol is offline");
        writes(alice_, "carol", "Read this when you are back.");
        carol_.logIn();
        carol_.hears("alice: Read this when you are back.");
        alice_.hears("carol is online");
    }

    void reconnect(Service const& service) {
        stage_.scene("Bob's connection is cut, and comes back by itself");
        service.cutConnection(bob_.name());
        alice_.hears("bob was disconnected from garden");
        bob_.hears("connection lost, connecting again");
        bob_.hears("connected");
        alice_.hears("bob joins garden");
        says(alice_, "Welcome back!");
        bob_.hears("alice in garden: Welcome back!");
    }

    // The reporter is the process's, not the client's: all three share it.
    void report(Service const& service) {
        stage_.scene("All of it was recorded, and the event reports reach the service: " + service.url() + "/");
        Service::Reports reports;
        stage_.waitUntil("the service", "the event reports", [&] {
            reports = service.reports();
            return reports["StartLogin"] == 4 && reports["LoginResult"] >= 4 && reports["JoinChannel"] >= 4 &&
                   reports["LeaveChannel"] == 1 && reports["Logout"] == 1 && reports["ConnectState"] >= 10;
        });
        for (auto const& [type, count] : reports) {
            stage_.event("page", type + (count == 1 ? "" : ", " + std::to_string(count) + " times"));
        }
    }

    Stage const& stage_;
    Person alice_, bob_, carol_;
};

/// Nothing when they cannot be understood.
std::optional<Options> readOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string const name = argv[i];
        bool const hasValue = i + 1 < argc;
        if (name == "--control") {
            options.hasControl = true;
        } else if (name == "--service" && hasValue) {
            options.service = argv[++i];
        } else if (name == "--stay" && hasValue) {
            options.stay = std::chrono::seconds(std::strtol(argv[++i], nullptr, 10));
        } else {
            return std::nullopt;
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    auto const options = readOptions(argc, argv);
    if (!options) {
        std::fputs("usage: demo [--service URL] [--control] [--stay SECONDS]\n", stderr);
        return 2;
    }
    try {
        TemporaryDirectory const directory;
        Stage const stage;
        kv::KvPimOptions clientOptions;
        clientOptions.envConfig = {.apiServer = options->service,
                                   .collectServer = options->service + "/pim/v1/collect-logan",
                                   .uploadInterval = 1s,
                                   .cachesDirectory = directory.path() / "caches",
                                   .keyStoreDirectory = directory.path() / "keys",
                                   .caFile = {}};
        Play(stage, clientOptions).run(*options);
        std::puts("\nAll that was shown arrived.");
        return 0;
    } catch (Failure const& failure) {
        std::fprintf(stderr, "\ndemo: %s\n", failure.what());
        return 1;
    }
}
