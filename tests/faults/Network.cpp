#include "Network.h"

#include <cstdlib>
#include <sstream>
#include <system_error>

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

namespace kv::test {
namespace {

constexpr char kOurAddress[] = "10.201.7.1";
constexpr char kOtherAddress[] = "10.201.7.2";

// NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread does it
bool run(std::string const& command) { return std::system((command + " 2>/dev/null").c_str()) == 0; }

std::vector<std::string> wordsOf(std::string const& text) {
    std::istringstream words(text);
    std::vector<std::string> all;
    for (std::string word; words >> word;) all.push_back(word);
    return all;
}

}  // namespace

void Network::inNamespace(std::function<void()> const& body) {
    if (!run("unshare --net ip link add kvcable type veth peer name kvother")) {
        GTEST_SKIP() << "this machine lets this user make no network namespace with a veth pair";
    }
    // A namespace belongs to a thread: only a process that has no other threads yet can change all of it.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            if (::unshare(CLONE_NEWNET) != 0) throw std::system_error(errno, std::generic_category(), "unshare");
            body();
            // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing else ends the process
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

Network::Network() : other_({"unshare", "--net", "cat"}) {
    // It is there when the first line comes back.
    other_.write("ready\n");
    EXPECT_TRUE(other_.readLine(std::chrono::steady_clock::now() + std::chrono::seconds(10)));
    auto const other = std::to_string(other_.pid());
    EXPECT_TRUE(run("ip link set lo up"));
    EXPECT_TRUE(run("ip link add kvcable type veth peer name kvother netns " + other));
    EXPECT_TRUE(run(std::string("ip addr add ") + kOurAddress + "/24 dev kvcable"));
    EXPECT_TRUE(run(enter() + "ip addr add " + kOtherAddress + "/24 dev kvother"));
    EXPECT_TRUE(run(enter() + "ip link set kvother up"));
    plugIn();
}

Service::Options Network::options(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--host", kOtherAddress});
    return {0, std::move(arguments), wordsOf(enter())};
}

void Network::pullCable() { EXPECT_TRUE(run("ip link set kvcable down")); }

void Network::plugIn() { EXPECT_TRUE(run("ip link set kvcable up")); }

std::string Network::enter() const { return "nsenter --net --target " + std::to_string(other_.pid()) + ' '; }

}  // namespace kv::test
