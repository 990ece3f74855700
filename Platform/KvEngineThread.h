// The background thread that serves the connections of the process: a queue that a thread of the library drives.
#pragma once

#include "Platform/KvExport.h"
#include "Platform/KvMainQueue.h"

#include <memory>

namespace kv {

/// The queue of the engine thread. The thread starts with the first call and lives as long as the process. Null while
/// the system has no thread or no descriptor for it. Any thread.
KV_EXPORT std::shared_ptr<KvMainQueue> engineThreadQueue();

/// Ends the engine thread when the process exits, before what was set up earlier than this call cleans up behind it.
void stopEngineThreadAtExit();

}  // namespace kv
