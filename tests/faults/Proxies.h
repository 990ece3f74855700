// Proxies as networks have them, each a program of its own on the loopback: Debian's squid and danted, and one for
// SOCKS with a password, which danted knows for users of the system alone.
#pragma once

#include "support/Certificates.h"
#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <memory>
#include <string>
#include <vector>

namespace kv::test {

/// What only the proxies know: 127.0.0.1, and a place where they let nobody go.
inline constexpr char kInnerName[] = "only-there.test";
inline constexpr char kForbiddenName[] = "forbidden.test";
inline constexpr char kForbiddenAddress[] = "127.0.0.2";
/// In a URL. The user is "alice".
inline constexpr char kProxyPassword[] = "s3cret%20word";

/// A port of 127.0.0.1 that nobody listens on.
int freePort();

class ProxyProgram {
public:
    /// Waits until it listens on `port`.
    void start();
    /// Ends it at once, as a crash would.
    void kill() { process_.reset(); }

protected:
    ProxyProgram() = default;
    ~ProxyProgram();
    TemporaryDirectory directory_;
    std::vector<std::string> command_;
    int port_ = freePort();

private:
    std::unique_ptr<ChildProcess> process_;
};

/// Three ways in: for everybody, for alice, and for alice in TLS.
class Squid : public ProxyProgram {
public:
    static bool isInstalled();
    explicit Squid(CertificateAuthority::Certificate const& certificate);
    std::string open() const { return "127.0.0.1:" + std::to_string(port_); }
    std::string locked() const { return "127.0.0.1:" + std::to_string(lockedPort_); }
    std::string secure() const { return "127.0.0.1:" + std::to_string(securePort_); }

private:
    int const lockedPort_ = freePort(), securePort_ = freePort();
};

/// For everybody.
class Danted : public ProxyProgram {
public:
    static bool isInstalled();
    Danted();
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
};

/// For alice.
class SocksServer {
public:
    SocksServer();
    std::string address() const { return "127.0.0.1:" + port_; }
    /// Whom it was asked for next.
    std::string nextHost();

private:
    ChildProcess process_;
    std::string port_;
};

}  // namespace kv::test
