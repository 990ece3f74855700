// The threads behind all serial queues and the real clock's delays. They start with the first use and live as long as
// the process; what was queued by its normal end is still done, if that takes no more than a few seconds.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

#include <boost/asio/io_context.hpp>

namespace kv {

/// Any thread.
class KvBackgroundPool final {
public:
    static KvBackgroundPool& shared();

    boost::asio::io_context& context() { return context_; }
    /// Brackets each piece of work for which the end of the process waits: from its queueing to its end.
    void began();
    void ended();

private:
    KvBackgroundPool();
    void drainAtExit();

    boost::asio::io_context context_;
    std::mutex mutex_;
    std::condition_variable allEnded_;
    std::size_t underWay_ = 0;  // guarded by mutex_
};

}  // namespace kv
