// Operations as asynchronous operations of Boost.Asio, for programs whose coroutines and executors are Asio's: with
// `asio::use_awaitable`, `asio::use_future`, `asio::deferred`, a handler, or any other completion token. Needs
// Boost.Asio of 1.81 or later; no other header includes this one.
#pragma once

#include "Classes/KvPimAwait.h"

#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/system_executor.hpp>
#include <boost/system/error_code.hpp>

namespace kv {
namespace detail {

template <class T>
struct KvAsioSignature {
    using Type = void(boost::system::error_code, T);
};
template <>
struct KvAsioSignature<void> {
    using Type = void(boost::system::error_code);
};

/// One operation between Asio's side, where its handler is, and the queue's, where it waits. What is left when the
/// queue is gone says that it was abandoned, so that the handler is always called, by its own executor.
template <class T, class Handler>
class KvAsioOperation : public std::enable_shared_from_this<KvAsioOperation<T, Handler>> {
    using Executor = boost::asio::associated_executor_t<Handler, boost::asio::system_executor>;

public:
    explicit KvAsioOperation(Handler handler)
        : handler_(std::move(handler)), work_(boost::asio::get_associated_executor(*handler_)) {}
    KvAsioOperation(KvAsioOperation const&) = delete;
    KvAsioOperation& operator=(KvAsioOperation const&) = delete;
    ~KvAsioOperation() {
        if (handler_) complete(make_error_code(KvWaitError::abandoned));
    }

    /// On Asio's side: lets the handler's cancellation slot, where it has one, stop the waiting.
    void listen(std::weak_ptr<KvMainQueue> queue) {
        auto slot = boost::asio::get_associated_cancellation_slot(*handler_);
        if (!slot.is_connected()) return;
        slot.assign([weak = this->weak_from_this(), queue = std::move(queue)](boost::asio::cancellation_type) {
            auto const running = queue.lock();
            if (!running) return;
            running->post([weak] {
                if (auto const self = weak.lock()) self->cancel();
            });
        });
    }

    /// On the queue.
    template <class Call>
    void begin(std::shared_ptr<KvMainQueue> const& queue, Call& call) {
        if (!handler_) return;
        pending_.emplace(call());
        spawn(queue, wait(this->shared_from_this()));
    }

private:
    static KvTask<> wait(std::shared_ptr<KvAsioOperation> self) { self->complete(co_await *self->pending_); }

    void cancel() {
        if (pending_) {
            pending_->cancel();
        } else if (handler_) {
            complete(make_error_code(KvWaitError::cancelled));
        }
    }

    void complete(KvResult<T> result) {
        auto const executor = work_.get_executor();
        auto deliver = [handler = std::move(*handler_), result = std::move(result)]() mutable {
            auto slot = boost::asio::get_associated_cancellation_slot(handler);
            if (slot.is_connected()) slot.clear();
            boost::system::error_code error;
            if (!result) error = result.error().code();
            if constexpr (std::is_void_v<T>) {
                std::move(handler)(error);
            } else {
                std::move(handler)(error, result ? *std::move(result) : T());
            }
        };
        handler_.reset();
        boost::asio::post(executor, std::move(deliver));
        work_.reset();
    }

    // Touched on the queue only, once it has begun.
    std::optional<Handler> handler_;  // gone once it was called
    boost::asio::executor_work_guard<Executor> work_;
    std::optional<KvPending<T>> pending_;
};

}  // namespace detail

/// Calls `call` on the queue, and hands what becomes of the operation that it begins to an Asio completion token: with
/// the signature `void(error_code)`, or `void(error_code, T)`. Any thread. The handler is called by its own executor,
/// which must outlive the operation. Cancelling it (any type of cancellation) stops the waiting; the request itself
/// cannot be recalled.
///
///     auto const roses = co_await kv::submit(queue, [client] { return client->getUserAttributes("rose"); },
///                                            asio::use_awaitable);
template <class Call, class Token>
auto submit(std::shared_ptr<KvMainQueue> const& queue, Call call, Token&& token) {
    using Value = typename detail::KvOutcome<std::invoke_result_t<Call&>>::Promised::value_type;
    auto const initiate = [](auto handler, std::shared_ptr<KvMainQueue> const& on, Call begin) {
        using Operation = detail::KvAsioOperation<Value, decltype(handler)>;
        auto const operation = std::make_shared<Operation>(std::move(handler));
        operation->listen(on);
        on->post([operation, begin = std::move(begin), weak = std::weak_ptr(on)]() mutable {
            if (auto const running = weak.lock()) operation->begin(running, begin);
        });
    };
    return boost::asio::async_initiate<Token, typename detail::KvAsioSignature<Value>::Type>(initiate, token, queue,
                                                                                             std::move(call));
}

}  // namespace kv
