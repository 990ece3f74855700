#include "Binding/Inbox.h"

#include <utility>

namespace kv::binding {

Inbox::Inbox(std::size_t mostBytes, bool attachesData, Events on)
    : mostBytes_(mostBytes), attachesData_(attachesData), on_(std::move(on)) {}

void Inbox::put(boost::json::object const& line, KvData data) {
    Message message(new kvpim_message{boost::json::serialize(line), std::move(data)});
    if (callback_) return hand(*message);
    bool isNowFull = false, isFirst = false;
    {
        std::lock_guard const lock(mutex_);
        if (isEnded_) return;
        bytes_ += message->bytes();
        waiting_.push_back(std::move(message));
        isNowFull = bytes_ > mostBytes_ && !std::exchange(isFull_, true);
        isFirst = !std::exchange(isToWake_, true);
    }
    if (isFirst) on_.first();
    if (isNowFull) on_.full();
}

void Inbox::wake() {
    std::lock_guard const lock(mutex_);
    isToWake_ = false;
    if (!waiting_.empty() && !std::exchange(isReadable_, true)) wakeUp_.raise();
    if (receivers_ > 0) changed_.notify_all();
}

Inbox::Message Inbox::takeOne(std::unique_lock<std::mutex>& lock) {
    auto message = std::move(waiting_.front());
    waiting_.pop_front();
    bytes_ -= message->bytes();
    if (waiting_.empty() && !isEnded_ && std::exchange(isReadable_, false)) wakeUp_.lower();
    bool const isRoom = isFull_ && bytes_ <= mostBytes_ / 2;
    if (isRoom) isFull_ = false;
    lock.unlock();
    if (isRoom) on_.room();
    return message;
}

kvpim_outcome Inbox::take(std::optional<std::chrono::steady_clock::time_point> end, Message& message) {
    std::unique_lock lock(mutex_);
    auto const isDone = [this] { return !waiting_.empty() || isEnded_; };
    ++receivers_;
    if (end) {
        changed_.wait_until(lock, *end, isDone);
    } else {
        changed_.wait(lock, isDone);
    }
    --receivers_;
    if (waiting_.empty()) return isEnded_ ? KVPIM_ENDED : KVPIM_NOTHING;
    message = takeOne(lock);
    return KVPIM_RECEIVED;
}

int Inbox::fd() {
    std::lock_guard const lock(mutex_);
    if (wakeUp_.fd() < 0 && wakeUp_.open()) {
        isReadable_ = isReadable_ || !waiting_.empty() || isEnded_;
        if (isReadable_) wakeUp_.raise();
    }
    return wakeUp_.fd();
}

void Inbox::setCallback(std::function<void(kvpim_message const&)> callback) {
    callback_ = std::move(callback);
    while (callback_) {
        std::unique_lock lock(mutex_);
        if (waiting_.empty()) return;
        auto const message = takeOne(lock);
        hand(*message);
    }
}

// What it is may be changed inside it, and it may end the client.
void Inbox::hand(kvpim_message const& message) {
    std::thread::id outer;  // of a callback that polls
    {
        std::lock_guard const lock(mutex_);
        if (isEnded_) return;
        outer = std::exchange(calling_, std::this_thread::get_id());
    }
    auto const callback = callback_;
    callback(message);
    std::lock_guard const lock(mutex_);
    calling_ = outer;
    changed_.notify_all();
}

void Inbox::end() {
    std::unique_lock lock(mutex_);
    isEnded_ = true;
    if (!std::exchange(isReadable_, true)) wakeUp_.raise();
    changed_.notify_all();
    changed_.wait(lock, [this] { return calling_ == std::thread::id() || calling_ == std::this_thread::get_id(); });
}

bool Inbox::isEnded() const {
    std::lock_guard const lock(mutex_);
    return isEnded_;
}

}  // namespace kv::binding
