// Watches the network of the system: links, addresses and the ways to everywhere that come and go, and the machine that
// wakes up. One watch serves all that work on one engine queue.
#pragma once

#include "Platform/KvMainQueue.h"

#include <functional>
#include <memory>
#include <string_view>

namespace kv::net {

/// Calls `changed` on `queue` shortly after the network has changed, once for a burst of changes, for as long as what
/// is returned lives. It must not outlive the engine's queue. Where the system lets nobody watch, `log` is told so, on
/// `queue`; it may be empty. Any thread.
[[nodiscard]] std::shared_ptr<void> watchNetwork(std::shared_ptr<KvMainQueue> const& engine,
                                                 std::shared_ptr<KvMainQueue> const& queue,
                                                 std::function<void()> changed,
                                                 std::function<void(std::string_view line)> log);

}  // namespace kv::net
