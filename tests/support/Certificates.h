// A certificate authority that lives as long as a test.
#pragma once

#include "support/TemporaryDirectory.h"

#include <memory>
#include <string>

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
    /// `names` as OpenSSL writes them: "DNS:localhost,IP:127.0.0.1". Valid until `days` from now.
    Certificate issue(std::string const& names, int days = 1) const;

private:
    TemporaryDirectory directory_;
    mutable int count_ = 0;
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> certificate_;
    std::string caFile_;
};

}  // namespace kv::test
