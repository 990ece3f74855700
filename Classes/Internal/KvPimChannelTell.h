#pragma once

#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/KvPimChannel.h"

namespace kv {

/// Calls a member of the channel's delegate, if the client, the delegate and that member are all there. Returns whether
/// it did.
template <auto Member, class... Arguments>
bool KvPimChannel::tell(Arguments const&... arguments) {
    auto const client = stateDelegate_.lock();
    auto const listener = delegate_.lock();
    if (!client || client->heldByApplication.expired() || !listener || !((*listener).*Member)) return false;
    ((*listener).*Member)(*this, arguments...);
    return true;
}

}  // namespace kv
