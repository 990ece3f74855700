// What the parts of a client share, and what a part is. Everything belongs to the main thread. Handlers, timers and
// work items hold parts weakly; what they find while the application holds the client stays until they return.
#pragma once

#include "Classes/Internal/KvEventHub.h"
#include "Classes/Internal/KvPimCounters.h"
#include "Classes/Internal/KvPimStateHelper.h"
#include "Classes/KvPimKit.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvMainQueue.h"

#include <cstddef>
#include <memory>
#include <string>

namespace kv {

class KvRecorder;
class SocketIOClient;

struct KvPimShared : std::enable_shared_from_this<KvPimKitImpl> {
    // What a client needs of its options for as long as it lives; there may be many clients.
    struct Options {
        net::NetworkOptions network;
        std::size_t maxQueuedBytes;
        bool checkThreads;
    };

    KvPimShared(std::string appId, std::weak_ptr<KvPimDelegate> listener, KvPimOptions const& given,
                net::NetworkOptions chosen);
    ~KvPimShared() { counters->onClientGone(); }

    std::shared_ptr<KvMainQueue> const mainQueue;
    std::shared_ptr<KvMainQueue> const engine;
    Options const options;
    std::shared_ptr<KvRecorder> recorder;  // null where nothing is recorded; set when the client is made
    // The outside, twice. The first expires the moment the application lets go, also in the middle of a callback: it
    // says whether anybody is to be told anything. The second is what a callback is given, and lives until it returns.
    std::weak_ptr<KvPimKit> heldByApplication;
    std::weak_ptr<KvPimKit> alive;
    std::weak_ptr<KvPimDelegate> delegate;
    KvEventHub<KvPimEvent> events{mainQueue};
    std::shared_ptr<KvPimStateManager> const stateManager;
    KvPimStateHelper stateHelper;
    std::shared_ptr<KvPimCounters> const counters = std::make_shared<KvPimCounters>(mainQueue);
    std::weak_ptr<SocketIOClient> socket;  // of the present connection, or of the last one; the session makes it
};

/// What each part of a client is made on.
template <class Part>
class KvPimPart {
public:
    explicit KvPimPart(KvPimShared& client) : client_(client) {}
    KvPimPart(KvPimPart const&) = delete;
    KvPimPart& operator=(KvPimPart const&) = delete;

    /// The part, as what waits for something holds it.
    std::weak_ptr<Part> weak() {
        return std::shared_ptr<Part>(client_.weak_from_this().lock(), static_cast<Part*>(this));
    }
    /// The part, if the application still holds the client. What is at work in it may keep the inside for longer.
    static std::shared_ptr<Part> living(std::weak_ptr<Part> const& part) {
        auto self = part.lock();
        return self && !self->client_.heldByApplication.expired() ? self : nullptr;
    }

protected:
    ~KvPimPart() = default;
    KvPimShared& client_;
};

}  // namespace kv
