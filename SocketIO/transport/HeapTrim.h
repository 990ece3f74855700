// Gives memory back to the system when a burst is over.
//
// What a burst needed is freed piece by piece, on two threads, and the C library keeps it: of its heaps only the ends
// shrink by themselves, and there is nearly always something small at an end. So a process would stay as large as it
// was at its worst. Nothing of the library's changes how memory is allocated; a process in which nothing ever piles up
// is never trimmed.
#pragma once

#include "Platform/KvMainQueue.h"

#include <cstddef>
#include <memory>

namespace kv::sio {

/// More than this on one connection, to be sent or to be handled, is a burst.
constexpr std::size_t kBurstBytes = 4u << 20;

/// A burst is over: trims the heaps of the process some seconds from now, and later if another one ends meanwhile. On
/// the engine queue, where it takes some milliseconds for every hundred mebibytes.
void trimHeapSoon(std::shared_ptr<KvMainQueue> const& engine);

}  // namespace kv::sio
