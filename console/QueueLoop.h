// The one loop of the program: it waits for the library's queue and for file descriptors together.
#pragma once

#include "Platform/KvMainQueue.h"

#include <span>

#include <poll.h>

namespace kv::console {

/// Waits until the queue has work or one of `others` is ready, then runs the queue's work. `revents` tells which were.
void turn(KvMainQueue& queue, std::span<pollfd> others);

}  // namespace kv::console
