// A descriptor that is readable when a queue has something to do: as what stands in KvSystem.h, each system's own.
#pragma once

#include "Platform/KvSystem.h"

#include <memory>

#include <boost/asio/io_context.hpp>

namespace kv {

class KvQueueDescriptor final {
public:
    /// `wakeUp`: what wakes the queue for work that is posted. Both must outlive this.
    KvQueueDescriptor(boost::asio::io_context& context, KvWakeUp const& wakeUp) : context_(context), wakeUp_(wakeUp) {}
    /// Any thread.
    int get();

private:
    boost::asio::io_context& context_;
    [[maybe_unused]] KvWakeUp const& wakeUp_;  // not where the system has a descriptor of its own
    std::shared_ptr<void> help_;               // what it takes where the system has no such descriptor
};

}  // namespace kv
