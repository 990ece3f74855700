#include "console/QueueLoop.h"

#include <vector>

namespace kv::console {

void turn(KvMainQueue& queue, std::span<pollfd> others) {
    std::vector<pollfd> waiting(others.begin(), others.end());
    waiting.push_back({.fd = queue.fd(), .events = POLLIN, .revents = 0});
    if (::poll(waiting.data(), waiting.size(), -1) < 0) return;  // interrupted: nothing is ready
    for (std::size_t i = 0; i < others.size(); ++i) others[i].revents = waiting[i].revents;
    if (waiting.back().revents != 0) queue.poll();
}

}  // namespace kv::console
