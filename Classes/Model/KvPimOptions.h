#pragma once

#include "Classes/Model/KvPimRecording.h"
#include "Net/KvPimNetworkOptions.h"
#include "Platform/KvMainQueue.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace kv {

/// Where a client finds its surroundings. An empty field stands for the built-in value. The diagnostics are those of
/// the process: the first client that is made decides `collectServer`, `uploadInterval`, `applicationIdentifier`,
/// `cachesDirectory`, `keyStoreDirectory`, and which `caFile` and network options the uploads use.
struct KvPimEnvConfig {
    /// Base URL of the API server: http or https, a host name with a dot in it or an IPv4 address, an optional port, no
    /// path. "http://127.0.0.1:8600" is one; "http://localhost:8600", "http://[::1]:8600" and a slash at the end are
    /// not.
    std::string apiServer;
    /// URL to which event reports are uploaded.
    std::string collectServer;
    /// How often event reports are uploaded, instead of once a minute: for services that one develops against.
    std::chrono::milliseconds uploadInterval{};
    /// Tells this application from the user's others, instead of the name of its executable: for programs that share
    /// one, as scripts do, or that may get another. Anything that stays the same, such as "com.example.chat".
    std::string applicationIdentifier{};
    /// Directory of "kv_pim.log" and of the event reports, instead of the application's own, "kvpim" and its name below
    /// the user's caches directory.
    std::string cachesDirectory;
    /// Directory in which the device id is kept as a private file, instead of the user's secret service.
    std::string keyStoreDirectory;
    /// PEM file of certificate authorities to trust in addition to the system's, unless the network options name one.
    std::string caFile;
};

/// Where the socket work of a client is done.
enum class KvPimEngine {
    /// On one background thread of the library that serves all clients: a busy main thread misses no heartbeat.
    thread,
    /// On the main queue itself: no thread and no hand-over, for programs that keep their loop free.
    mainQueue,
};

/// How a client is made. All of it may stay as it is.
struct KvPimOptions {
    KvPimEnvConfig envConfig;
    /// The queue on which the client lives; null for `KvMainQueue::main()`.
    std::shared_ptr<KvMainQueue> mainQueue;
    KvPimEngine engine = KvPimEngine::thread;
    /// What may wait to be sent, in bytes. A request beyond it is not sent and ends like one without an answer.
    std::size_t maxQueuedBytes = 64u << 20;
    /// How the client gets through the network, and what it takes from it.
    KvPimNetworkOptions network{};
    /// Ends the program, with a sentence that names the call, when this client is called from another thread than the
    /// one that drives its main queue. Debug builds of the library always do.
    bool checkThreads = false;
    /// A file that all of what goes over the wire is written to, for who looks for a fault; none by default.
    KvPimRecording recordTo{};
};

}  // namespace kv
