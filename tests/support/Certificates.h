// A certificate authority that lives as long as a test.
#pragma once

#include "support/ScriptedServer.h"
#include "support/TemporaryDirectory.h"

#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace kv::test {

class CertificateAuthority {
public:
    struct Certificate {
        std::string certificateFile, keyFile;
    };

    explicit CertificateAuthority(char const* name = "Test authority");

    std::string const& caFile() const { return caFile_; }
    /// `names` as OpenSSL writes them: "DNS:localhost,IP:127.0.0.1". Valid until `days` from now, and since `since`.
    Certificate issue(std::string const& names, int days = 1, int since = -2,
                      char const* commonName = "Test server") const;
    /// One that nobody but itself vouches for.
    Certificate selfSigned(std::string const& names) const;

private:
    Certificate sign(X509* certificate, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuersKey,
                     std::string const& names) const;

    TemporaryDirectory directory_;
    mutable int count_ = 0;
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> certificate_;
    std::string caFile_;
};

/// A server that says who it is, and what clients think of it; empty when they trust it.
/// Those of IPv6 are left out where the machine has no ::1.
struct TlsCase {
    char const* what;
    ScriptedServer::Options server;
    char const* host;
    char const* error;  // how the reason begins
};
std::vector<TlsCase> tlsCases(CertificateAuthority const& authority, CertificateAuthority const& stranger);

}  // namespace kv::test
