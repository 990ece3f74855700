// From a host to its addresses, without holding up anyone. A thread for each look-up, and not Asio's resolver: that has
// one thread for all, and its destructor waits for the name that is being looked up.
#pragma once

#include "Platform/KvMainQueue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/ip/tcp.hpp>

namespace kv::net {

using Endpoints = std::vector<boost::asio::ip::tcp::endpoint>;

/// Finds the addresses of a host, in the order in which they are to be tried, or none and an error text. For
/// a literal address `done` is called before `lookUp` returns. A name is looked up on a thread of its own, because that
/// can take minutes, once for all who ask for it within a second, and `done` is called on the queue; `done` may be
/// destroyed on that thread and must own nothing that belongs to the queue.
void lookUp(std::string const& host, std::uint16_t port, std::shared_ptr<KvMainQueue> const& queue,
            std::function<void(Endpoints endpoints, std::string error)> done);

}  // namespace kv::net
