#pragma once

#include <string>

namespace kv {

/// The API server of those clients that are given none.
class KvApiManager {
public:
    /// Base URL: no path and no slash at the end.
    static std::string apiServer() { return KVPIM_API_SERVER; }
};

}  // namespace kv
