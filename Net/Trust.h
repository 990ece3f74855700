// The authorities that the certificates of servers must end in: the system's, and those of a file. Any thread.
//
// Reading all of the system's takes as long as ten logins, so they are read as chains ask for them, once a process; a
// file is read again when it has changed.
#pragma once

#include <memory>
#include <string>

#include <openssl/x509.h>

namespace kv::net {

/// The system's authorities and those of this PEM file, "" for none; null with an error text when it cannot be read.
std::shared_ptr<X509_STORE> trustedAuthorities(std::string const& caFile, std::string& error);

}  // namespace kv::net
