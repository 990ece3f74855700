#include "Net/NetworkWatch.h"

namespace kv::net {

// Connections find out by their heartbeats.
std::shared_ptr<void> watchNetwork(std::shared_ptr<KvMainQueue> const&, std::shared_ptr<KvMainQueue> const& queue,
                                   std::function<void()>, std::function<void(std::string_view line)> log) {
    auto const watch = std::make_shared<std::function<void(std::string_view line)>>(std::move(log));
    queue->post([weak = std::weak_ptr(watch)] {
        auto const told = weak.lock();
        if (told && *told) (*told)("Cannot watch the network: not on this system");
    });
    return watch;
}

}  // namespace kv::net
