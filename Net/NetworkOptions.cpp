#include "Net/NetworkOptions.h"

#include <utility>

namespace kv::net {

NetworkOptions const& builtInOptions() {
    static auto const& options = *new NetworkOptions(std::make_shared<KvPimNetworkOptions const>());
    return options;
}

NetworkOptions withCaFile(NetworkOptions options, std::string const& caFile) {
    if (caFile.empty() || !optionsOf(options).tls.caFile.empty()) return options;
    auto changed = optionsOf(options);
    changed.tls.caFile = caFile;
    return std::make_shared<KvPimNetworkOptions const>(std::move(changed));
}

}  // namespace kv::net
