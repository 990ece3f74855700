// Opens a WebSocket: a stream to the server, and on it the handshake that makes it one. Lives on the engine queue. The
// caller limits the time.
#pragma once

#include "Net/Dialer.h"
#include "Net/Failure.h"
#include "Net/NetworkOptions.h"
#include "Net/Talk.h"
#include "Net/Url.h"
#include "Platform/KvData.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/transport/Upgrade.h"

#include <functional>
#include <memory>
#include <string>

namespace kv::sio {

class Opener final : public std::enable_shared_from_this<Opener> {
public:
    struct Plan {
        net::Url url;
        std::string target;
        net::NetworkOptions network;
        bool offersDeflate = false;
        net::Progress progress = net::makeProgress();
    };
    struct Opened {
        std::unique_ptr<net::Stream> stream;  // null when it failed
        KvBytes early;                        // what the server sent behind its answer
        DeflateAgreement agreement;
        net::Failure failure;
        std::string head{};  // of the server's answer, status line and headers; empty where there was none
    };

    Opener(std::shared_ptr<KvMainQueue> const& queue, Plan plan, std::function<void(Opened)> done);
    Opener(Opener const&) = delete;
    Opener& operator=(Opener const&) = delete;
    ~Opener();

    void start();
    /// Ends it; `done` is not called.
    void cancel();
    /// What it is doing once it was started, for the text of a time-out.
    std::string doing() const;

private:
    class Handshake;
    void shakeHands(std::unique_ptr<net::Stream> stream);
    void finish(Opened opened);

    std::weak_ptr<KvMainQueue> const queue_;
    Plan const plan_;
    std::function<void(Opened)> done_;  // empty once it is over
    std::shared_ptr<net::Dialer> dialer_;
    std::unique_ptr<net::Stream> stream_;
    std::unique_ptr<Handshake> handshake_;
    std::shared_ptr<net::Talk> talk_;
};

}  // namespace kv::sio
