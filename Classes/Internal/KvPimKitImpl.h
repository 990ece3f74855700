// The inside of a client: its parts, on what they share. Its owner, `KvPimKit`, is what applications hold; when the
// application lets go of that, nothing in here calls a delegate any more. Everything belongs to the main thread.
#pragma once

#include "Classes/Internal/KvPimFailures.h"
#include "Classes/Internal/KvPimRequests.h"
#include "Classes/Internal/KvPimRestorer.h"
#include "Classes/Internal/KvPimRouter.h"
#include "Classes/Internal/KvPimSession.h"
#include "Classes/Internal/KvPimShared.h"

namespace kv {

class KvPimKitImpl final : public KvPimShared {
public:
    KvPimKitImpl(std::string appId, std::weak_ptr<KvPimDelegate> listener, KvPimOptions const& given,
                 net::NetworkOptions chosen, std::string apiServer)
        : KvPimShared(std::move(appId), std::move(listener), given, std::move(chosen)),
          session(*this, router, restorer, failures, std::move(apiServer)) {}

    KvPimRouter router{*this};
    KvPimFailures failures{*this, router};
    KvPimRequests requests{*this, failures};
    KvPimRestorer restorer{*this, router};
    KvPimSession session;
};

}  // namespace kv
