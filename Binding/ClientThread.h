// The thread that runs the clients of the C interface which nobody polls: one for all of them.
#pragma once

#include "Platform/KvMainQueue.h"

#include <memory>

namespace kv::binding {

/// The queue of that thread, which starts with the first call and ends with the process. Null while the system has no
/// thread or no descriptors for it. Any thread.
std::shared_ptr<KvMainQueue> clientThreadQueue();

/// Ends the thread, once it has done the work that waits; it is given a moment. For the end of the process.
void stopClientThread();

}  // namespace kv::binding
