#pragma once

#include "Classes/Utils/KvLog.h"

#include <memory>
#include <string_view>

namespace kv {

/// Tells the log of a delegate that is gone by the call that hands it over, which is always a mistake. Having none is
/// no mistake.
template <class Delegate>
void warnIfGone(std::weak_ptr<Delegate> const& delegate, std::string_view call = __builtin_FUNCTION()) {
    std::weak_ptr<Delegate> const none;
    bool const isOne = delegate.owner_before(none) || none.owner_before(delegate);
    if (isOne && delegate.expired()) {
        KvLog::shared().warn("%@: the delegate is gone already and will hear of nothing; the application keeps it",
                             call);
    }
}

}  // namespace kv
