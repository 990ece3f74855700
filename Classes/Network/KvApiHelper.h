// Asks the API server which socket server an application shall use. Every login asks anew: nothing is kept.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kv {

class KvApiHelper {
public:
    using Completion = std::function<void(std::optional<std::string> server)>;

    /// Asks the API server, despite its name, for the socket server.
    /// @param appId  becomes part of the URL as it is.
    /// @param caFile  PEM file of authorities to trust in addition to the system's; empty for none.
    /// @param completion  called exactly once, on the HTTP thread: the first server of the answer, "" when that is no
    ///     string, nothing when there is no usable answer. It must not block.
    static void apiServer(std::string_view apiBase, std::string_view appId, std::string caFile, Completion completion);
};

}  // namespace kv
