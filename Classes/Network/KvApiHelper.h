// Asks the API server which socket server an application shall use. Every login asks anew: nothing is kept.
#pragma once

#include "Net/Failure.h"
#include "Net/Http.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvMainQueue.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kv {

class KvApiHelper {
public:
    /// `why` there is no server.
    using Completion = std::function<void(std::optional<std::string> server, net::Failure const& why)>;

    /// Asks the API server, despite its name, for the socket server.
    /// @param appId  becomes part of the URL as it is.
    /// @param completion  called exactly once, on `queue`: the first server of the answer, "" when that is no string,
    ///     nothing when there is no usable answer. It must not block.
    static void apiServer(std::string_view apiBase, std::string_view appId, net::NetworkOptions network,
                          std::shared_ptr<KvMainQueue> const& queue, Completion completion);

    /// Where it asks.
    static std::string urlOf(std::string_view apiBase, std::string_view appId);
    /// What an answer says: as a completion gets it.
    static std::optional<std::string> serverOf(KvHttpAnswer const& answer, net::Failure& why);
};

}  // namespace kv
