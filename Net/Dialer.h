// Makes a stream to a server: name, TCP (the first of a name's addresses that answers), the tunnel of a proxy, TLS.
// Lives on the engine queue. The caller limits the time.
#pragma once

#include "Net/Failure.h"
#include "Net/NameLookup.h"
#include "Net/NetworkOptions.h"
#include "Net/Proxy.h"
#include "Net/Stream.h"
#include "Net/Talk.h"
#include "Net/Url.h"
#include "Platform/KvMainQueue.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace kv::net {

class Dialer final : public std::enable_shared_from_this<Dialer> {
public:
    /// `stream` is null when it failed.
    using Done = std::function<void(std::unique_ptr<Stream> stream, Failure failure)>;

    Dialer(std::shared_ptr<KvMainQueue> const& queue, Url url, NetworkOptions options, Done done,
           Progress progress = makeProgress());
    Dialer(Dialer const&) = delete;
    Dialer& operator=(Dialer const&) = delete;
    ~Dialer() { cancel(); }

    void start();
    /// Ends it; `done` is not called.
    void cancel();
    /// How far it is.
    KvFailureStage stage() const { return *progress_; }
    /// What it is doing, for the text of a time-out.
    std::string const& doing() const { return doing_; }

private:
    Url const& hop() const { return proxy_ ? proxy_->url : url_; }
    std::string hopText() const { return proxy_ ? proxy_->text() : url_.text(); }
    void connectByApplication();
    void connectNext();
    void onConnecting(std::size_t attempt, IoResult const& result);
    void stopConnecting();
    void openTunnel();
    void secure();
    void startTls(std::shared_ptr<KvTlsOptions const> const& options, Url const& server, void (Dialer::*next)());
    void shakeHands();
    void succeed();
    void finish(std::unique_ptr<Stream> stream, Failure failure);
    void fail(std::string error);
    void enter(KvFailureStage stage, std::string doing);

    std::weak_ptr<KvMainQueue> const queue_;
    Url const url_;
    NetworkOptions const options_;
    std::optional<Proxy> proxy_;
    Done done_;  // empty once it is over
    Progress const progress_;
    std::string doing_;
    Endpoints endpoints_;
    std::size_t nextEndpoint_ = 0;
    std::map<std::size_t, std::unique_ptr<Stream>> attempts_;  // by the number of their endpoints, from 1
    KvQueueTimer nextAttempt_;
    std::unique_ptr<Stream> stream_;  // the one that was first
    std::unique_ptr<Script> tunnel_;
    std::shared_ptr<Talk> talk_;  // with the proxy
    void (Dialer::*afterTls_)() = nullptr;
};

}  // namespace kv::net
