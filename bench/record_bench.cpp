// What an event report costs: its caller, and the queues behind. Files and key store are real, in a temporary
// directory.
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileManager.h"
#include "Platform/KvKeyStore.h"
#include "tests/support/TemporaryDirectory.h"

#include <string>

#include <benchmark/benchmark.h>

namespace {

constexpr int kBatch = 1000;

kv::KvPimEnvConfig configIn(kv::TemporaryDirectory const& directory) {
    kv::KvKeyStore::setShared(kv::makeFileKeyStore(directory.path("keys")));
    kv::KvPimEnvConfig config;
    config.collectServer = "http://127.0.0.1:9/";
    config.cachesDirectory = directory.path();
    return config;
}

// The queues are emptied outside the measured time, or a caller that outruns them would measure a growing heap.
template <class Report>
void costToCaller(benchmark::State& state, Report report) {
    kv::TemporaryDirectory const directory;
    kv::LoganManager manager(configIn(directory), kv::KvClock::real());
    manager.setAppId("app");
    manager.setUId("someone");
    manager.drain();
    int waiting = 0;
    for (auto _ : state) {
        report(manager);
        if (++waiting < kBatch) continue;
        state.PauseTiming();
        manager.drain();
        waiting = 0;
        state.ResumeTiming();
    }
}

void connectState(benchmark::State& state) {
    costToCaller(state, [](kv::LoganManager& manager) { manager.connectState(3, 2); });
}
BENCHMARK(connectState);

void joinChannel(benchmark::State& state) {
    costToCaller(state, [](kv::LoganManager& manager) { manager.joinChannel(1, "a channel's name", 0); });
}
BENCHMARK(joinChannel);

void startLogin(benchmark::State& state) {
    std::string const token(32, 't');
    costToCaller(state, [&](kv::LoganManager& manager) { manager.startLogan(token, "someone", 1'600'000'000'000); });
}
BENCHMARK(startLogin);

// From the call to the line on disk: flattening, look-up of the device id, append.
void reportsToDisk(benchmark::State& state) {
    kv::TemporaryDirectory const directory;
    kv::LoganManager manager(configIn(directory), kv::KvClock::real());
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) manager.connectState(3, i);
        manager.drain();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(reportsToDisk)->UseRealTime();

// The append queue alone, with lines as long as those of reports.
void appendQueue(benchmark::State& state) {
    kv::TemporaryDirectory const directory;
    kv::WnLoganFileManager files(directory.path("logan"), true);
    std::string const record(400, 'r');
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) files.writeLog(record);
        files.drain();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    state.SetBytesProcessed(state.iterations() * kBatch * static_cast<std::int64_t>(record.size() + 1));
}
BENCHMARK(appendQueue)->UseRealTime();

void logLineBelowTheFilter(benchmark::State& state) {
    kv::TemporaryDirectory const directory;
    kv::KvLog log;
    log.useDirectory(directory.path());
    std::string const argument(100, 'x');
    for (auto _ : state) log.info("a line that nobody wants: %@", argument);
}
BENCHMARK(logLineBelowTheFilter);

}  // namespace

BENCHMARK_MAIN();
