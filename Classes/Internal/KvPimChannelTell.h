#pragma once

#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/KvPimChannel.h"

namespace kv {

/// Tells the channel's delegate, if the client, the delegate and that member are all there, and then the streams of
/// events. Returns whether the delegate was told.
template <auto Member, class... Arguments>
bool KvPimChannel::tell(Arguments const&... arguments) {
    auto const client = stateDelegate_.lock();
    if (!client || client->heldByApplication.expired()) return false;
    bool const isTold = tellDelegate<Member>(delegate_.lock(), *this, arguments...);
    if (auto const streams = events_) streams->template tell<Member>(arguments...);
    return isTold;
}

}  // namespace kv
