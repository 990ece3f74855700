// What is made of an application's description of the network.
#pragma once

#include "Net/KvPimNetworkOptions.h"
#include "Platform/KvExport.h"

#include <memory>
#include <string>
#include <vector>

namespace kv {

/// What is wrong with the options, in a sentence; empty when they can be used.
KV_EXPORT std::string problemOf(KvPimNetworkOptions const& options);

namespace net {

using NetworkOptions = std::shared_ptr<KvPimNetworkOptions const>;

/// One copy for all connections of a client; null when all of it is as it is by default.
KV_EXPORT NetworkOptions shared(KvPimNetworkOptions options);
/// What the null stands for too.
KV_EXPORT KvPimNetworkOptions const& optionsOf(NetworkOptions const& options);

/// The same, trusting the authorities of one more file, unless the options name a file themselves.
KV_EXPORT NetworkOptions withCaFile(NetworkOptions options, std::string const& caFile);

/// What of the options must not be told to people, whoever says it: passwords of proxies, the values of headers.
KV_EXPORT std::vector<std::string> secretsOf(KvPimNetworkOptions const& options);

/// The lines of a request that the application wants: the user agent and the further headers, each with its end.
std::string headerLines(KvPimNetworkOptions const& options);

}  // namespace net
}  // namespace kv
