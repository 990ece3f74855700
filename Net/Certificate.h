// What a certificate says, for programs and for people.
#pragma once

#include "Net/KvPimNetworkOptions.h"

#include <string>

#include <openssl/x509.h>

namespace kv::net {

/// One line: whose it is, who vouches for it, and for how long. `host` is who has shown it.
std::string describe(X509* certificate, std::string const& host);
/// The pin of its public key, as the options write one.
std::string pinOf(X509* certificate);
KvPeerCertificate peerCertificate(X509* certificate, STACK_OF(X509) * chain, std::string const& host);

}  // namespace kv::net
