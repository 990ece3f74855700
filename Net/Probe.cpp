#include "Net/Probe.h"

#include "Net/Certificate.h"
#include "Net/Dialer.h"
#include "Net/Proxy.h"
#include "Platform/KvQueueContext.h"

#include <array>
#include <cstdlib>
#include <utility>

namespace kv::net {
namespace {

using Clock = KvMainQueue::Clock;

class NameProbe final : public std::enable_shared_from_this<NameProbe> {
public:
    NameProbe(Way way, std::function<void(NamesFound)> done) : way_(std::move(way)), done_(std::move(done)) {}

    void start(std::shared_ptr<KvMainQueue> const& queue, ProbeLimit limit) {
        timer_ = queue->after(limit, [this, limit] { finish({}, "Cannot find " + way_.hop.host + noAnswer(limit)); });
        lookUp(way_.hop.host, way_.hop.port, queue, [weak = weak_from_this()](Endpoints found, std::string error) {
            if (auto const self = weak.lock()) self->finish(std::move(found), std::move(error));
        });
    }

private:
    void finish(Endpoints endpoints, std::string error) {
        auto const done = std::exchange(done_, nullptr);
        if (!done) return;
        if (!error.empty() && way_.isProxied) error = "No way to " + way_.hopText() + ": " + error;
        auto const stage = way_.isProxied ? KvFailureStage::proxy : KvFailureStage::name;
        done({std::move(endpoints), {stage, std::move(error)}});
    }

    Way const way_;
    std::function<void(NamesFound)> done_;
    KvQueueTimer timer_;
};

class TcpProbe final : public std::enable_shared_from_this<TcpProbe> {
public:
    explicit TcpProbe(std::function<void(std::vector<TcpAttempt>)> done) : done_(std::move(done)) {}

    void start(std::shared_ptr<KvMainQueue> const& queue, Endpoints const& endpoints, ProbeLimit limit) {
        started_ = Clock::now();
        timer_ = queue->after(limit, [this] { finish(); });
        pending_ = endpoints.size();
        for (auto const& endpoint : endpoints) {
            attempts_.push_back({.endpoint = endpoint, .took = limit});
            streams_.push_back(std::make_unique<Stream>(contextOf(*queue)));
        }
        for (std::size_t i = 0; i < endpoints.size(); ++i) onConnecting(i, streams_[i]->connect(endpoints[i]));
    }

private:
    void onConnecting(std::size_t i, IoResult const& result) {
        if (result.status == IoStatus::wantWrite) {
            auto const onWritable = [weak = weak_from_this(), i](boost::system::error_code) {
                auto const self = weak.lock();
                if (self && self->done_) self->onConnecting(i, self->streams_[i]->finishConnect());
            };
            return streams_[i]->socket().async_wait(boost::asio::socket_base::wait_write, onWritable);
        }
        attempts_[i].took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - started_);
        attempts_[i].error = result.error;
        if (--pending_ == 0) finish();
    }

    void finish() {
        auto const done = std::exchange(done_, nullptr);
        streams_.clear();
        if (done) done(std::move(attempts_));
    }

    std::function<void(std::vector<TcpAttempt>)> done_;
    Clock::time_point started_;
    std::vector<TcpAttempt> attempts_;
    std::vector<std::unique_ptr<Stream>> streams_;
    std::size_t pending_ = 0;
    KvQueueTimer timer_;
};

// A Dialer with a limit.
class DialProbe final : public std::enable_shared_from_this<DialProbe> {
public:
    explicit DialProbe(Dialer::Done done) : done_(std::move(done)) {}
    DialProbe(DialProbe const&) = delete;
    DialProbe& operator=(DialProbe const&) = delete;
    ~DialProbe() {
        if (dialer_) dialer_->cancel();
    }

    void start(std::shared_ptr<KvMainQueue> const& queue, Url url, NetworkOptions network, ProbeLimit limit) {
        timer_ = queue->after(limit, [this, limit] {
            finish(nullptr, {dialer_->stage(), dialer_->doing() + noAnswer(limit)});
        });
        dialer_ = std::make_shared<Dialer>(
            queue, std::move(url), std::move(network),
            [this](std::unique_ptr<Stream> stream, Failure failure) { finish(std::move(stream), std::move(failure)); });
        auto const dialer = dialer_;  // it may end within the call, and this with it
        dialer->start();
    }

private:
    void finish(std::unique_ptr<Stream> stream, Failure failure) {
        auto const done = std::exchange(done_, nullptr);
        timer_.cancel();
        dialer_->cancel();
        if (done) done(std::move(stream), std::move(failure));
    }

    Dialer::Done done_;
    std::shared_ptr<Dialer> dialer_;
    KvQueueTimer timer_;
};

TlsFound whatIsAgreed(SSL const* tls, std::string const& host) {
    TlsFound found;
    found.version = SSL_get_version(tls);
    found.cipher = SSL_CIPHER_get_name(SSL_get_current_cipher(tls));
    auto* const chain = SSL_get_peer_cert_chain(tls);
    for (int i = 0; i < sk_X509_num(chain); ++i)
        found.chain.push_back(peerCertificate(sk_X509_value(chain, i), nullptr, host).subject);
    if (auto* const own = SSL_get0_peer_certificate(tls)) found.certificate = peerCertificate(own, chain, host);
    return found;
}

}  // namespace

std::string noAnswer(ProbeLimit limit) {
    auto const count = limit.count();
    return ": no answer within " +
           (count % 1000 == 0 ? std::to_string(count / 1000) + " s" : std::to_string(count) + " ms");
}

std::optional<Way> Way::to(std::string_view address, NetworkOptions const& network) {
    auto const server = Url::parse(address);
    if (!server) return std::nullopt;
    auto const& proxy = Proxy::to(*server, optionsOf(network).proxy);
    if (proxy.empty() || optionsOf(network).connector) return Way{*server, *server};
    auto const parsed = Proxy::parse(proxy);
    return parsed ? std::optional(Way{*server, parsed->url, true}) : std::nullopt;
}

UnusedProxies unusedProxies(Way const& way, NetworkOptions const& network) {
    auto const& used = Proxy::to(way.server, optionsOf(network).proxy);
    UnusedProxies unused;
    for (auto const* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        char const* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets them
        if (value != nullptr && *value != '\0' && value != used) unused.variables.emplace_back(name);
    }
    unused.wouldLead = used.empty() && !Proxy::to(way.server, KvProxy::fromEnvironment()).empty();
    return unused;
}

Probe probeNames(std::shared_ptr<KvMainQueue> const& queue, Way const& way, ProbeLimit limit,
                 std::function<void(NamesFound)> done) {
    auto probe = std::make_shared<NameProbe>(way, std::move(done));
    probe->start(queue, limit);
    return probe;
}

Probe probeTcp(std::shared_ptr<KvMainQueue> const& queue, Endpoints const& endpoints, ProbeLimit limit,
               std::function<void(std::vector<TcpAttempt>)> done) {
    auto probe = std::make_shared<TcpProbe>(std::move(done));
    probe->start(queue, endpoints, limit);
    return probe;
}

Probe probeTunnel(std::shared_ptr<KvMainQueue> const& queue, Way const& way, NetworkOptions const& network,
                  ProbeLimit limit, std::function<void(Failure)> done) {
    // To a server without TLS, so that it ends where the tunnel does.
    auto toServer = way.server;
    toServer.isSecure = false;
    auto options = optionsOf(network);
    options.proxy.forHttp = Proxy::to(way.server, options.proxy);
    auto probe = std::make_shared<DialProbe>(
        [done = std::move(done)](auto const&, Failure failure) { done(std::move(failure)); });
    probe->start(queue, std::move(toServer), std::make_shared<KvPimNetworkOptions const>(std::move(options)), limit);
    return probe;
}

Probe probeTls(std::shared_ptr<KvMainQueue> const& queue, Way const& way, NetworkOptions const& network,
               ProbeLimit limit, std::function<void(TlsFound)> done) {
    auto options = optionsOf(network);
    // Options with a function are like no others, and so share no sessions.
    if (!options.tls.accepts) options.tls.accepts = [](KvPeerCertificate const&) { return true; };
    auto probe = std::make_shared<DialProbe>(
        [done = std::move(done), host = way.server.host](std::unique_ptr<Stream> stream, Failure failure) {
            auto found = stream ? whatIsAgreed(stream->tls(), host) : TlsFound();
            found.failure = std::move(failure);
            done(std::move(found));
        });
    probe->start(queue, way.server, std::make_shared<KvPimNetworkOptions const>(std::move(options)), limit);
    return probe;
}

std::string trustText(KvTlsOptions const& options) {
    std::string text;
    auto const add = [&](bool isTrusted, std::string const& what) {
        if (isTrusted) text.append(text.empty() ? "" : ", ").append(what);
    };
    add(options.trustsSystem, std::string("the system's authorities (") + X509_get_default_cert_dir() + ')');
    add(!options.caFile.empty(), options.caFile);
    add(!options.caDirectory.empty(), options.caDirectory);
    add(!options.caPem.empty(), "authorities in PEM text");
    add(!options.pins.empty(), "and only pinned keys");
    return text.empty() ? "nobody" : text;
}

}  // namespace kv::net
