// What is made of an application's description of the network.
#pragma once

#include "Net/KvPimNetworkOptions.h"

#include <memory>
#include <string>

namespace kv {

/// What is wrong with the options, in a sentence; empty when they can be used.
std::string problemOf(KvPimNetworkOptions const& options);

namespace net {

using SharedOptions = std::shared_ptr<KvPimNetworkOptions const>;

/// One copy for all connections of a client; null when all of it is as it is by default.
SharedOptions shared(KvPimNetworkOptions options);
/// What the null stands for too.
KvPimNetworkOptions const& orDefault(SharedOptions const& options);

/// The lines of a request that the application wants: the user agent and the further headers, each with its end.
std::string headerLines(KvPimNetworkOptions const& options);

}  // namespace net
}  // namespace kv
