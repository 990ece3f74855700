// A client of the library under test: a kit whose delegate writes everything down, on a queue that the test drives.
#pragma once

#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "TestKit/Service.h"
#include "support/Json.h"
#include "support/LocalService.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

namespace kv::test {

using States = std::vector<std::pair<std::int64_t, std::int64_t>>;

struct Person {
    /// `adjust` changes the client's options before it is made.
    Person(std::string url, std::string userId_, std::shared_ptr<KvMainQueue> queue_, Engine engine = Engine::thread,
           std::function<void(KvPimOptions&)> const& adjust = {})
        : Person(optionsOf(std::move(url), std::move(queue_)), std::move(userId_), engine, adjust) {}
    /// Of the test kit's service.
    Person(Service const& service, std::string userId_, Engine engine,
           std::function<void(KvPimOptions&)> const& adjust = {})
        : Person(service.options(), std::move(userId_), engine, adjust) {}

    Person(KvPimOptions options, std::string userId_, Engine engine, std::function<void(KvPimOptions&)> const& adjust)
        : userId(std::move(userId_)), queue(options.mainQueue), delegate(std::make_shared<KvPimDelegate>()) {
        delegate->connectionStateChanged = [this](KvPimKit& told, std::int64_t state, std::int64_t reason) {
            bool const isAsTold =
                told.stateManager().state == state || reason == KvPimConnectionChangeReasonLoginTimeout;
            EXPECT_TRUE(isAsTold) << state << ' ' << reason;
            states.emplace_back(state, reason);
        };
        delegate->messageReceived = [this](KvPimKit&, std::shared_ptr<KvPimMessage> message,
                                           std::string const& peerId) {
            messages.emplace_back(peerId, std::move(message));
        };
        delegate->peersOnlineStatusChanged = [this](KvPimKit&, std::vector<KvPimPeerOnlineStatus> const& changed) {
            statuses.insert(statuses.end(), changed.begin(), changed.end());
        };
        delegate->peersUserAttributesChanged = [this](KvPimKit&, std::vector<KvPimUserAttributes> const& changed) {
            attributes.insert(attributes.end(), changed.begin(), changed.end());
        };
        delegate->tokenDidExpire = [this](KvPimKit&) { ++expired; };
        static TemporaryDirectory const directory;  // the process's, as the diagnostics are
        cachesDirectory = directory.path("caches");
        options.envConfig.cachesDirectory = cachesDirectory;
        options.envConfig.keyStoreDirectory = directory.path("keys");
        options.envConfig.collectServer = "http://127.0.0.1:9/";  // nothing of a test is ever uploaded
        options.engine = engine == Engine::thread ? KvPimEngine::thread : KvPimEngine::mainQueue;
        if (adjust) adjust(options);
        kit = KvPimKit::initWithAppId("app", delegate, options);
    }

    /// Logs in and waits; true when that worked.
    bool login() {
        std::int64_t code = -1;
        kit->loginByToken(kToken, 1, userId, [&](std::int64_t result) { code = result; });
        return runUntil(*queue, [&] { return code >= 0; }) && code == 0;
    }

    /// Starts an operation whose completion is the given function's argument, and waits for its code.
    std::int64_t codeOf(std::function<void(KvPimKit::Completion)> const& start) {
        std::int64_t code = -1;
        start([&](std::int64_t result) { code = result; });
        EXPECT_TRUE(runUntil(*queue, [&] { return code >= 0; }));
        return code;
    }

    std::shared_ptr<KvPimChannel> join(std::string const& channelId,
                                       std::shared_ptr<KvPimChannelDelegate> const& listener = nullptr) {
        auto channel = kit->createChannelWithId(channelId, listener);
        EXPECT_EQ(codeOf([&](auto done) { channel->joinWithCompletion(done); }), 0);
        return channel;
    }

    static KvPimOptions optionsOf(std::string url, std::shared_ptr<KvMainQueue> queue) {
        KvPimOptions options;
        options.envConfig.apiServer = std::move(url);
        options.mainQueue = std::move(queue);
        return options;
    }

    std::string userId;
    std::string cachesDirectory;  // the same for all of the process
    std::shared_ptr<KvMainQueue> queue;
    std::shared_ptr<KvPimDelegate> delegate;
    std::shared_ptr<KvPimKit> kit;
    States states;
    std::vector<std::pair<std::string, std::shared_ptr<KvPimMessage>>> messages;
    std::vector<KvPimPeerOnlineStatus> statuses;
    std::vector<KvPimUserAttributes> attributes;
    int expired = 0;
};

}  // namespace kv::test
