// Makes a connection: name, TCP (the first of a name's addresses that answers), TLS, WebSocket handshake. Lives on the
// engine queue. The caller limits the time.
#pragma once

#include "Net/NameLookup.h"
#include "Net/Stream.h"
#include "Net/Url.h"
#include "Platform/KvData.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/transport/Upgrade.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace kv::sio {

class Dialer final : public std::enable_shared_from_this<Dialer> {
public:
    struct Plan {
        net::Url url;
        std::string target;
        std::string headerLines;  // of the upgrade, beside its own
        std::string caFile;
        bool offersDeflate = false;
    };
    struct Dialed {
        std::unique_ptr<net::Stream> stream;  // null when it failed, and the error says why
        KvBytes early;                        // what the server sent behind its answer
        DeflateAgreement agreement;
        std::string error;
    };

    Dialer(std::shared_ptr<KvMainQueue> const& queue, Plan plan, std::function<void(Dialed)> done);

    void start();
    /// Ends it; `done` is not called.
    void cancel();
    /// What it is doing, for the text of a time-out.
    std::string const& stage() const { return stage_; }

private:
    void connectNext();
    void onConnecting(std::size_t attempt, net::IoResult const& result);
    void stopConnecting();
    void onConnected();
    void shakeHands();
    void sendRequest();
    void write();
    void readAnswer();
    void finish(Dialed dialed);
    void fail(std::string error);
    void whenReady(net::IoResult const& result, void (Dialer::*step)());

    std::weak_ptr<KvMainQueue> const queue_;
    Plan const plan_;
    std::function<void(Dialed)> done_;  // empty once it is over
    std::string stage_;
    net::Endpoints endpoints_;
    std::size_t nextEndpoint_ = 0;
    std::map<std::size_t, std::unique_ptr<net::Stream>> attempts_;  // by the number of their endpoints, from 1
    KvQueueTimer nextAttempt_;
    std::unique_ptr<net::Stream> stream_;  // the one that was first
    std::unique_ptr<Upgrade> upgrade_;
    std::size_t written_ = 0;
    KvBytes answer_;
};

}  // namespace kv::sio
