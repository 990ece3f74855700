// The options of the network as the library passes them on: shared, and null for the built-in values.
#pragma once

#include "Net/KvPimNetworkOptions.h"

#include <memory>
#include <string>

namespace kv::net {

using NetworkOptions = std::shared_ptr<KvPimNetworkOptions const>;

KV_EXPORT NetworkOptions const& builtInOptions();
inline KvPimNetworkOptions const& optionsOf(NetworkOptions const& options) {
    return options ? *options : *builtInOptions();
}

/// The same, trusting the authorities of one more file, unless the options name a file themselves.
KV_EXPORT NetworkOptions withCaFile(NetworkOptions options, std::string const& caFile);

}  // namespace kv::net
