// Buffers of received attachments, used again. Any thread.
//
// An attachment is made by the engine and freed by the application, on another thread. Freed there, its memory goes
// back to the system between two bursts, and every page of the next one is made anew: which costs more than all the
// rest.
#pragma once

#include "Platform/KvData.h"

#include <cstddef>

namespace kv::sio {

/// Empty bytes that hold `size` without growing; of a buffer that came back where there is one.
KvBytes takeBytes(std::size_t size);
/// Attachments whose buffer comes back when nobody holds them any more: on whatever thread, and long after the
/// connection that they came over.
KvData makeReceived(KvBytes bytes);
/// Frees the buffers that came back, unless some were taken since the last call.
void trimBytes();

}  // namespace kv::sio
