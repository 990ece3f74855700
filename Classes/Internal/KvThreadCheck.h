#pragma once

#include "Platform/KvMainQueue.h"

namespace kv {

[[noreturn]] void endOfWrongThread(char const* call);
/// Everything of a client belongs to one thread. Ends a program that calls from another: debug builds always, others
/// where the client was made to.
inline void assertMainThread(KvMainQueue const& queue, [[maybe_unused]] bool isChecked, char const* call) {
#ifdef NDEBUG
    if (!isChecked) return;
#endif
    if (!queue.isOwnThread()) endOfWrongThread(call);
}

}  // namespace kv
