// Where a queue's sockets live. Asynchronous operations on them must be started on the queue itself, inside `post` or
// `dispatch`: an application that waits for the queue's descriptor would not learn of them otherwise.
#pragma once

#include "Platform/KvMainQueue.h"

#include <boost/asio/io_context.hpp>

namespace kv {

boost::asio::io_context& contextOf(KvMainQueue& queue);

}  // namespace kv
