// A socket under test with everything that it says.
#pragma once

#include "Platform/KvEngineThread.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"
#include "support/Json.h"
#include "support/ScriptedServer.h"
#include "support/Test.h"

namespace kv::test {

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

}  // namespace kv::test
