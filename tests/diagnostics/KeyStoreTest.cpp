#include "Platform/KvKeyStore.h"
#include "diagnostics/Shell.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

using Status = KvKeyStoreStatus;

KvKeyStoreQuery const kItem{"service", "account"};

mode_t permissionsOf(std::string const& path) {
    struct stat about {};
    EXPECT_EQ(::lstat(path.c_str(), &about), 0) << path;
    return about.st_mode & 07777;
}

TEST(FileKeyStore, KeepsWhatItIsGiven) {
    TemporaryDirectory const home;
    auto const store = makeFileKeyStore(home.path("a/b/keys/"));
    EXPECT_EQ(store->copyMatching(kItem).status, Status::itemNotFound);
    EXPECT_EQ(store->remove(kItem), Status::itemNotFound);
    for (std::string const& value : {std::string("first"), std::string("se\ncond\0 \xff", 10), std::string()}) {
        EXPECT_EQ(store->add(kItem, value), Status::success);
        auto const match = makeFileKeyStore(home.path("a/b/keys"))->copyMatching(kItem);
        EXPECT_EQ(match.status, Status::success);
        EXPECT_EQ(match.value, value);
    }
    EXPECT_EQ(store->remove(kItem), Status::success);
    EXPECT_EQ(store->copyMatching(kItem).status, Status::itemNotFound);
}

TEST(FileKeyStore, TellsItemsApartWhateverTheirNames) {
    TemporaryDirectory const home;
    auto const store = makeFileKeyStore(home.path("keys"));
    std::vector<KvKeyStoreQuery> const queries{{"", ""},     {"", "a"},   {"a", ""},    {"a", "b"},       {"ab", ""},
                                               {"..", ".."}, {"/", "/x"}, {"../", "x"}, {"a~", "b"},      {"a", "~b"},
                                               {"%2F", ""},  {"A", "b"},  {"\n", " "},  {"\xc3\xa4", "b"}};
    for (auto const& query : queries)
        ASSERT_EQ(store->add(query, query.service + "|" + query.account), Status::success);
    for (auto const& query : queries) {
        EXPECT_EQ(store->copyMatching(query).value, query.service + "|" + query.account);
    }
    EXPECT_EQ(entriesOf(home.path("keys")).size(), queries.size());
    EXPECT_EQ(entriesOf(home.path()).size(), 1u);
    EXPECT_NE(store->add({std::string(300, 'x'), "too long"}, "value"), Status::success);
    EXPECT_EQ(entriesOf(home.path("keys")).size(), queries.size());  // nothing half done is left
}

TEST(FileKeyStore, IsPrivateAndFollowsNoLink) {
    TemporaryDirectory const home;
    auto const store = makeFileKeyStore(home.path("keys"));
    auto const oldMask = ::umask(0);
    ASSERT_EQ(store->add(kItem, "secret"), Status::success);
    ::umask(oldMask);
    auto const item = home.path("keys/" + entriesOf(home.path("keys")).front());
    EXPECT_EQ(permissionsOf(home.path("keys")), 0700u);
    EXPECT_EQ(permissionsOf(item), 0600u);

    ::chmod(home.path("keys").c_str(), 0755);
    EXPECT_EQ(store->copyMatching(kItem).value, "secret");
    EXPECT_EQ(permissionsOf(home.path("keys")), 0700u);

    makeFile(home.path("elsewhere"), "not a secret");
    std::filesystem::remove(item);
    std::filesystem::create_symlink(home.path("elsewhere"), item);
    EXPECT_EQ(store->copyMatching(kItem).status, Status::ioError);
    EXPECT_EQ(store->add(kItem, "new"), Status::success);  // in the place of the link
    EXPECT_EQ(store->copyMatching(kItem).value, "new");
    EXPECT_EQ(contentOf(home.path("elsewhere")), "not a secret");

    std::filesystem::create_directory_symlink(home.path("keys"), home.path("link"));
    EXPECT_EQ(makeFileKeyStore(home.path("link/"))->copyMatching(kItem).status, Status::notAvailable);
}

TEST(FileKeyStore, RefusesWhatIsNoItemAndNoDirectoryOfItsOwn) {
    TemporaryDirectory const home;
    auto const store = makeFileKeyStore(home.path("keys"));
    ASSERT_EQ(store->add(kItem, "secret"), Status::success);
    auto const item = home.path("keys/" + entriesOf(home.path("keys")).front());
    std::filesystem::remove(item);
    ASSERT_EQ(::mkfifo(item.c_str(), 0600), 0);  // nobody writes to it
    EXPECT_EQ(store->copyMatching(kItem).status, Status::ioError);

    makeFile(home.path("file"), "");
    EXPECT_EQ(makeFileKeyStore(home.path("file"))->add(kItem, "x"), Status::notAvailable);
    EXPECT_EQ(makeFileKeyStore(home.path("file/below"))->add(kItem, "x"), Status::notAvailable);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(home.path("keys").c_str(), 1, 1), 0);
        EXPECT_EQ(store->add(kItem, "x"), Status::notAvailable);
    }
}

TEST(FileKeyStore, ReadersNeverSeeAHalfValue) {
    TemporaryDirectory const home;
    auto const store = makeFileKeyStore(home.path("keys"));
    std::string const values[] = {std::string(1000, 'a'), std::string(3000, 'b')};
    ASSERT_EQ(store->add(kItem, values[0]), Status::success);
    std::vector<std::jthread> writers;
    for (auto const& value : values) {
        writers.emplace_back([&](std::stop_token const& end) {
            while (!end.stop_requested()) store->add(kItem, value);
        });
    }
    for (int i = 0; i < 1000; ++i) {
        auto const value = store->copyMatching(kItem).value;
        ASSERT_TRUE(value == values[0] || value == values[1]) << value;
    }
    writers.clear();
    EXPECT_EQ(entriesOf(home.path("keys")).size(), 1u);
}

// As a keyring and the private files beside it: the keyring may be locked at one start and open at the next.
TEST(TwinKeyStore, HoldsOneValueWhicheverOfTheTwoIsThere) {
    TemporaryDirectory const home;
    auto const keyring = makeFileKeyStore(home.path("keyring"));
    auto const files = makeFileKeyStore(home.path("files"));
    auto const readAtStart = [&] { return makeTwinKeyStore(keyring, files)->copyMatching(kItem); };
    auto const lock = [&] {
        std::filesystem::rename(home.path("keyring"), home.path("locked"));
        makeFile(home.path("keyring"), "");
    };
    auto const unlock = [&] {
        std::filesystem::remove(home.path("keyring"));
        std::filesystem::rename(home.path("locked"), home.path("keyring"));
    };
    EXPECT_EQ(readAtStart().status, Status::itemNotFound);
    lock();
    EXPECT_EQ(readAtStart().status, Status::notAvailable);
    EXPECT_EQ(makeTwinKeyStore(keyring, files)->add(kItem, "made while locked"), Status::success);
    unlock();
    EXPECT_EQ(readAtStart().value, "made while locked");
    EXPECT_EQ(keyring->copyMatching(kItem).value, "made while locked");
    keyring->add(kItem, "older");  // they differ, as they did where only one was ever asked
    EXPECT_EQ(readAtStart().value, "older");
    lock();
    EXPECT_EQ(readAtStart().value, "older");
    unlock();
    EXPECT_EQ(makeTwinKeyStore(keyring, files)->remove(kItem), Status::success);
    EXPECT_EQ(readAtStart().status, Status::itemNotFound);
}

// A session bus of its own with a real keyring behind it, whose files are in a home of its own.
class SecretServiceKeyStore : public testing::Test {
protected:
    void SetUp() override {
        if (runShell("command -v dbus-run-session gnome-keyring-daemon dbus-send > /dev/null").exitCode != 0) {
            GTEST_SKIP() << "gnome-keyring-daemon, dbus-run-session or dbus-send is missing";
        }
    }
    ShellResult session(char const* state, std::string const& steps, std::chrono::milliseconds limit = 30s) {
        return runShell(KEYRING_SESSION " " + home.path() + " " + state + " " DIAGNOSTICS_PROBE " secrets " +
                        std::to_string(limit.count()) + " " + steps + " 2> " + home.path("errors"));
    }
    TemporaryDirectory home;
};

TEST_F(SecretServiceKeyStore, KeepsWhatItIsGivenFromOneSessionToTheNext) {
    auto const first = session("unlocked", "read add=first add=second read");
    EXPECT_EQ(first.output, "open\nread -25300 \nadd 0\nadd 0\nread 0 second\n") << contentOf(home.path("errors"));
    auto const second = session("unlocked", "read remove remove read");
    EXPECT_EQ(second.output, "open\nread 0 second\nremove 0\nremove -25300\nread -25300 \n")
        << contentOf(home.path("errors"));
}

TEST_F(SecretServiceKeyStore, IsNotChosenWhenItWouldHaveToAsk) {
    EXPECT_EQ(session("locked", "read").output, "none\n") << "no keyring yet: to make one takes a password";
    session("unlocked", "add=value");
    auto const locked = session("locked", "read");
    EXPECT_EQ(locked.output, "none\n") << contentOf(home.path("errors"));
}

TEST_F(SecretServiceKeyStore, RefusesInsteadOfAskingWhenItIsLockedLater) {
    std::string const lock =
        "'dbus-send --session --print-reply --dest=org.freedesktop.secrets /org/freedesktop/secrets "
        "org.freedesktop.Secret.Service.Lock array:objpath:/org/freedesktop/secrets/collection/login > /dev/null'";
    auto const result = session("unlocked", "add=value " + lock + " read add=other remove");
    EXPECT_EQ(result.output, "open\nadd 0\nread -25308 \nadd -25308\nremove -25308\n")
        << contentOf(home.path("errors"));
}

TEST_F(SecretServiceKeyStore, WaitsOnceForAServiceThatHangs) {
    auto const result = session("unlocked", "add=value 'kill -STOP $KEYRING' read read", 5s);
    EXPECT_EQ(result.output, "open\nadd 0\nread -25291  late\nread -25291 \n") << contentOf(home.path("errors"));
}

TEST(SecretService, IsNotWaitedForWhereThereIsNone) {
    TemporaryDirectory const home;
    boost::asio::io_context context;
    boost::asio::local::stream_protocol::acceptor const silent(context, home.path("bus"));  // never says a word
    std::string const bus = "DBUS_SESSION_BUS_ADDRESS=unix:path=" + home.path();
    for (auto const& [environment, output] :
         {std::pair<std::string, char const*>{"DBUS_SESSION_BUS_ADDRESS=", "none"},
          {"-u DBUS_SESSION_BUS_ADDRESS XDG_RUNTIME_DIR=" + home.path("nowhere"), "none"},
          {bus + "/gone", "none"},
          {bus + "/bus", "none late\n"}}) {
        auto const result = runShell("env " + environment + " " DIAGNOSTICS_PROBE " secrets 300 2> /dev/null");
        // How long the look for a bus takes is the machine's business; the silent one takes all of its time.
        EXPECT_TRUE(result.output.starts_with(output)) << environment << ": " << result.output;
        EXPECT_LT(result.elapsed, 60s) << environment;
    }
}

}  // namespace
}  // namespace kv
