// What nearly every test needs.
#pragma once

#include "Platform/KvMainQueue.h"
#include "support/Readable.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace kv {

using namespace std::chrono_literals;

namespace test {

/// Waits until the condition holds, for a minute at most: a busy machine with a sanitizer takes its time.
inline bool waitUntil(std::function<bool()> const& holds) {
    auto const end = std::chrono::steady_clock::now() + 60s;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

/// Runs the queue until the condition holds. A clock that stands still is moved by `step` at each turn.
inline bool runUntil(KvMainQueue& queue, std::function<bool()> const& holds, std::chrono::milliseconds step = 0ms) {
    auto const end = std::chrono::steady_clock::now() + 60s;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) return false;
        isReadable(queue.fd(), 5ms);
        queue.poll();
        if (step > 0ms) queue.advance(step);
    }
    return true;
}

// The two places of the engine, which pass the same tests.
enum class Engine { mainQueue, thread };
class EveryEngine : public testing::TestWithParam<Engine> {};
inline std::string engineName(testing::TestParamInfo<Engine> const& info) {
    return info.param == Engine::mainQueue ? "MainQueue" : "Thread";
}
#define ON_EVERY_ENGINE(Suite) \
    INSTANTIATE_TEST_SUITE_P(Engines, Suite, testing::Values(Engine::thread, Engine::mainQueue), engineName)

}  // namespace test
}  // namespace kv
