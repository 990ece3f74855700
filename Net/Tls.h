// TLS as an application wants it: whom it trusts, who it is itself, what it remembers of servers. Any thread; what is
// made of it belongs to the engine queue.
#pragma once

#include "Net/KvPimNetworkOptions.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <openssl/ssl.h>

namespace kv::net {

/// What is wrong with options that no server could make right; empty for nothing.
std::string problemOfTls(KvTlsOptions const& options);

class TlsContext final : public std::enable_shared_from_this<TlsContext> {
public:
    /// The context for these options, one for all who want the same, or null and an error text. Reading all of the
    /// system's authorities takes as long as ten logins: where it can be, each is read when a chain asks for it.
    static std::shared_ptr<TlsContext> of(std::shared_ptr<KvTlsOptions const> const& options, std::string& error);

    TlsContext(TlsContext const&) = delete;
    TlsContext& operator=(TlsContext const&) = delete;
    ~TlsContext();

    /// This side of a session with a server, over `transport`, which it owns from now on; null and an error text
    /// when it cannot be. `address`: host and port, by which the server is found again.
    SSL* begin(std::string const& host, std::string const& address, BIO* transport, std::string& error);
    /// Ends it. Its session is kept for the next connection to that address.
    static void end(SSL* ssl);
    /// What speaks against a server whose handshake is over; empty for nothing.
    static std::string judge(SSL const* ssl);
    /// Why a handshake has failed, where it was because of the server's certificate; else empty.
    static std::string refusal(SSL const* ssl);

private:
    struct Peer;
    struct FreeSession {
        void operator()(SSL_SESSION* session) const { SSL_SESSION_free(session); }
    };
    using Session = std::unique_ptr<SSL_SESSION, FreeSession>;

    explicit TlsContext(std::shared_ptr<KvTlsOptions const> options) : options_(std::move(options)) {}
    std::string make();
    std::string trust();
    std::string identify();
    std::string examine(X509* certificate, STACK_OF(X509) * chain, std::string const& host) const;
    Session takeSession(std::string const& address);
    void keepSession(std::string const& address, Session session);
    static int peerIndex();
    static Peer& peerOf(SSL const* ssl);
    static int onVerified(int isGood, X509_STORE_CTX* verifying);

    std::shared_ptr<KvTlsOptions const> const options_;
    SSL_CTX* context_ = nullptr;
    std::mutex mutex_;
    std::map<std::string, std::vector<Session>> sessions_;  // by address; guarded by mutex_
};

}  // namespace kv::net
