#include "Platform/KvSerialQueue.h"

#include "Platform/KvBackgroundPool.h"

#include <cassert>
#include <future>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>

namespace kv {
namespace asio = boost::asio;

class KvSerialQueue::Impl {
public:
    void async(std::function<void()> work) {
        KvBackgroundPool::shared().began();
        asio::post(strand_, [work = std::move(work)]() mutable {
            work();
            work = nullptr;  // what it holds goes before the end of the process is let through
            KvBackgroundPool::shared().ended();
        });
    }
    bool isCurrent() const { return strand_.running_in_this_thread(); }

private:
    asio::strand<asio::io_context::executor_type> strand_{KvBackgroundPool::shared().context().get_executor()};
};

KvSerialQueue::KvSerialQueue(std::string label, std::shared_ptr<KvClock> clock)
    : label_(std::move(label)), clock_(std::move(clock)), impl_(std::make_shared<Impl>()) {}

KvSerialQueue::~KvSerialQueue() = default;

void KvSerialQueue::async(std::function<void()> work) { impl_->async(std::move(work)); }

void KvSerialQueue::asyncAfter(std::chrono::nanoseconds delay, std::function<void()> work) {
    clock_->callAfter(delay, [weak = std::weak_ptr(impl_), work = std::move(work)] {
        if (auto const impl = weak.lock()) impl->async(work);
    });
}

void KvSerialQueue::drain() {
    assert(!isCurrent() && "a queue cannot wait for itself");
    std::promise<void> reached;
    impl_->async([&reached] { reached.set_value(); });
    reached.get_future().wait();
}

bool KvSerialQueue::isCurrent() const { return impl_->isCurrent(); }

}  // namespace kv
