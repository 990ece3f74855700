#include "Classes/KvPimChannel.h"
#include "bench/KitClient.h"
#include "bench/Measure.h"
#include "bench/Workloads.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace bench {
namespace {

constexpr long kSizes[] = {10, 1000, 100'000};
constexpr long kOperations = 20'000;
constexpr int kDepth = 64, kRuns = 3;
constexpr std::size_t kPeersInARequest = 1000, kLoginsAtATime = 200;

/// What a client keeps, and what must be kept alive for it.
struct Kept {
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<std::shared_ptr<kv::KvPimChannel>> channels;
    std::shared_ptr<kv::KvPimChannelDelegate> channelDelegate = std::make_shared<kv::KvPimChannelDelegate>();
};

void keepChannels(KitClient& client, long count, Kept& kept) {
    kept.channelDelegate->messageReceived = [&client](kv::KvPimChannel&, auto const&, auto const&) {
        client.onEvent();
    };
    for (long i = 0; i < count; ++i) {
        kept.channels.push_back(client.kit().createChannelWithId("room-" + std::to_string(i), kept.channelDelegate));
    }
}

void keepPending(KitClient& client, long count, Kept&) {
    for (long i = 0; i < count; ++i) client.sendTo("nobody", "hello", [](std::int64_t) {});
}

void keepPeers(KitClient& client, long count, Kept&) {
    for (long next = 0; next < count;) {
        std::vector<std::string> peers;
        while (next < count && peers.size() < kPeersInARequest) peers.push_back("peer-" + std::to_string(next++));
        runUntilDone([&](Client::Done done) {
            client.kit().subscribePeersOnlineStatus(peers, [done = std::move(done)](std::int64_t) { done(); });
        });
    }
}

// As many as the process may open sockets for are logged in, less some for its other needs; the others are only there.
void keepClients(Subject const& subject, long count, Kept& kept) {
    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    auto const most = static_cast<long>(files.rlim_cur) / 2;
    for (long i = 0; i < std::min(count, most); ++i) {
        kept.clients.push_back(std::make_unique<KitClient>(subject, "user-" + std::to_string(i)));
    }
    loginAll(kept.clients, kLoginsAtATime);
    for (long i = most; i < count; ++i) {
        kept.clients.push_back(std::make_unique<KitClient>(subject, "user-" + std::to_string(i)));
    }
}

double bestMicroseconds(std::function<void()> const& run) {
    double best = 1e9;
    for (int i = 0; i < kRuns; ++i) {
        auto const before = cpuSeconds();
        run();
        best = std::min(best, (cpuSeconds() - before) * 1e6 / kOperations);
    }
    return best;
}

struct Kind {
    char const* name;
    char const* events;  // the peer that stands for the events that look into what is kept
    std::function<void(KitClient& client, long count, Kept& kept)> keep;
};

void measure(Kind const& kind, Subject const& subject, long size) {
    Kept kept;
    KitClient client(subject);
    runUntilDone([&](Client::Done done) { client.login(std::move(done)); });
    kind.keep(client, size, kept);
    auto const request = bestMicroseconds([&] { requestPipelined(client, kOperations, kDepth, Content::text); });
    auto const event = bestMicroseconds([&] {
        runUntilDone([&](Client::Done done) { client.askForEvents(kind.events, kOperations, std::move(done)); });
    });
    std::printf("| %s | %ld | %.2f | %.2f |\n", kind.name, size, request, event);
    std::fflush(stdout);
}

}  // namespace

void runGrowth(Subject const& subject) {
    Kind const kinds[] = {
        {"channels", "flood-channel", keepChannels},
        {"pending acknowledgements", "flood-text", keepPending},
        {"subscribed peers", "flood-status", keepPeers},
        {"clients", "flood-text",
         [&subject](KitClient&, long count, Kept& kept) { keepClients(subject, count, kept); }},
    };
    std::printf("| kept | how many | CPU us a request | CPU us an event |\n|---|---|---|---|\n");
    for (auto const& kind : kinds) {
        for (long const size : kSizes) measure(kind, subject, size);
    }
}

}  // namespace bench
