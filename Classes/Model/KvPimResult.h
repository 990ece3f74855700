#pragma once

#include "Platform/KvExport.h"

#include <cstdint>
#include <string_view>

namespace boost::json {
class object;
}

namespace kv {

class SocketData;

/// What an acknowledgement, or a notice of the same form, says. No public call takes or gives one. Refers to the data
/// that it was read from, and lives no longer.
struct KV_EXPORT KvPimResult {
    /// Nobody answered in time.
    bool isAckTimeout = false;
    /// The server's result code; -1 when there was no result dictionary.
    std::int32_t code = -1;
    /// The first item when it is a text, else empty.
    std::string_view errorString;
    /// The last item when it is a dictionary, else null.
    boost::json::object const* response = nullptr;
    /// What it was read from; null for none.
    SocketData const* data = nullptr;

    /// Reads the items of an acknowledgement.
    static KvPimResult resultWithArray(SocketData const& data);
};

}  // namespace kv
