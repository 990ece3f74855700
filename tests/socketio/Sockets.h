// A socket under test with everything that it says, and the two placements of the engine that pass the same tests.
#pragma once

#include "Platform/KvEngineThread.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"
#include "support/ScriptedServer.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

namespace kv::test {

using namespace std::chrono_literals;
namespace json = boost::json;

enum class Engine { mainQueue, thread };

/// Runs the queue until `isDone`, for a minute at most: a busy machine with a sanitizer takes its time.
inline bool runUntil(KvMainQueue& queue, std::function<bool()> const& isDone) {
    auto const deadline = std::chrono::steady_clock::now() + 60s;
    while (!isDone()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        queue.runFor(1ms);
    }
    return true;
}

inline std::shared_ptr<KvMainQueue> engineFor(Engine placement, std::shared_ptr<KvMainQueue> const& queue) {
    return placement == Engine::mainQueue ? queue : engineThreadQueue();
}

/// A manager and its socket. Every event that is delivered is a line: its name, then its items as JSON.
class Client {
public:
    Client(Engine placement, std::string url, SocketConfig config = {},
           std::shared_ptr<KvMainQueue> mainQueue = KvMainQueue::create())
        : queue(std::move(mainQueue)),
          manager(
              std::make_unique<SocketManager>(std::move(url), std::move(config), queue, engineFor(placement, queue))) {
        manager->setReconnects(false);
        for (auto const* event : {"connect", "disconnect", "error", "loginSuccess", "event"}) record(event);
    }

    SocketIOClient& socket() { return *manager->defaultSocket(); }

    void record(std::string const& event) {
        socket().on(event, [this, event](SocketData const& data) {
            lines.push_back(data.items().empty() ? event : event + ' ' + json::serialize(data.items()));
        });
    }

    bool waitFor(std::string const& line) {
        return runUntil(*queue, [&] { return std::find(lines.begin(), lines.end(), line) != lines.end(); });
    }
    bool waitForEvent(std::string const& event) {
        return runUntil(*queue, [&] { return !lineOf(event).empty(); });
    }
    std::string lineOf(std::string const& event) const {
        for (auto const& line : lines)
            if (line == event || line.starts_with(event + ' ')) return line;
        return {};
    }
    bool connect() {
        socket().connect();
        return waitForEvent("connect");
    }
    /// The reason of the disconnect that comes.
    std::string disconnectReason() {
        if (!waitForEvent("disconnect")) return "no disconnect came";
        return json::parse(lineOf("disconnect").substr(11)).at(0).as_string().c_str();
    }

    std::shared_ptr<KvMainQueue> const queue;
    std::vector<std::string> lines;
    std::unique_ptr<SocketManager> manager;
};

class EveryEngine : public testing::TestWithParam<Engine> {};

inline std::string engineName(testing::TestParamInfo<Engine> const& info) {
    return info.param == Engine::mainQueue ? "MainQueue" : "Thread";
}

}  // namespace kv::test
