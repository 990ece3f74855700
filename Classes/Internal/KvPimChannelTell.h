#pragma once

#include "Classes/KvPimChannel.h"

namespace kv {

/// Calls a member of the channel's delegate, if the delegate is there and has it. Says whether it did.
template <auto Member, class... Arguments>
bool KvPimChannel::tell(Arguments const&... arguments) {
    auto const listener = delegate_.lock();
    if (!listener || !((*listener).*Member)) return false;
    ((*listener).*Member)(*this, arguments...);
    return true;
}

}  // namespace kv
