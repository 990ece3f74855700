// What it costs to await a request instead of giving it a completion: both in turns, in one process, with so many under
// way at a time.
#include "Classes/KvPimAwait.h"
#include "bench/KitClient.h"
#include "bench/Measure.h"
#include "bench/Workloads.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace bench {
namespace {

constexpr long kOperations = 50'000;
constexpr int kDepth = 64, kRuns = 7;

// Of all threads, while they are counted.
std::atomic<bool> isCounting{false};
std::atomic<long> allocations{0};

struct Lanes {
    KitClient& client;
    long left;
    int running = 0;
    Client::Done done;
};

kv::KvTask<> awaitRequests(Lanes& lanes) {
    while (lanes.left > 0) {
        --lanes.left;
        auto const message = std::make_shared<kv::KvPimMessage>(std::string(kTextBytes, 'x'));
        auto const sent = co_await lanes.client.kit().sendMessageToPeer(message, "bob");
        if (!sent) fail("a request failed: %s", sent.error().message().c_str());
    }
    if (--lanes.running == 0) lanes.done();
}

void requestAwaited(KitClient& client, long count) {
    Lanes lanes{client, count, kDepth, {}};
    runUntilDone([&](Client::Done done) {
        lanes.done = std::move(done);
        for (int i = 0; i < kDepth; ++i) kv::spawn(kv::KvMainQueue::main(), awaitRequests(lanes));
    });
}

struct Form {
    char const* name;
    void (*request)(KitClient& client, long count);
    std::vector<double> microseconds{};
    double allocated = 0;
};

}  // namespace

void runAwaiting(Subject const& subject) {
    KitClient client(subject);
    runUntilDone([&](Client::Done done) { client.login(std::move(done)); });
    Form forms[] = {
        {"completion", [](KitClient& it, long count) { requestPipelined(it, count, kDepth, Content::text); }},
        {"awaited", requestAwaited},
    };
    for (auto const& form : forms) form.request(client, kOperations);
    for (int run = 0; run < kRuns; ++run) {
        for (auto& form : forms) {
            Measurement measurement;
            form.request(client, kOperations);
            measurement.stop();
            form.microseconds.push_back(measurement.cpu() * 1e6 / kOperations);
        }
    }
    for (auto& form : forms) {
        allocations = 0;
        isCounting = true;
        form.request(client, kOperations);
        isCounting = false;
        form.allocated = static_cast<double>(allocations) / kOperations;
    }
    std::printf("| %s | CPU us a request | allocations a request |\n|---|---|---|\n", subject.name().c_str());
    for (auto const& form : forms) {
        std::printf("| %s | %.2f | %.2f |\n", form.name, percentile(form.microseconds, 0.5), form.allocated);
    }
    std::fflush(stdout);
}

}  // namespace bench

// NOLINTBEGIN(misc-new-delete-overloads,cppcoreguidelines-no-malloc): the other forms call these
void* operator new(std::size_t size) {
    if (bench::isCounting.load(std::memory_order_relaxed)) bench::allocations.fetch_add(1, std::memory_order_relaxed);
    if (auto* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
// NOLINTEND(misc-new-delete-overloads,cppcoreguidelines-no-malloc)
