#include "Binding/Inbox.h"

#include <cstdint>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace kv::binding {
namespace {

void makeReadable(int fd) {
    std::uint64_t const one = 1;
    if (fd >= 0) static_cast<void>(::write(fd, &one, sizeof one));
}

void makeUnreadable(int fd) {
    std::uint64_t count = 0;
    if (fd >= 0) static_cast<void>(::read(fd, &count, sizeof count));
}

}  // namespace

Inbox::Inbox(std::size_t mostBytes, bool attachesData, Events on)
    : mostBytes_(mostBytes), attachesData_(attachesData), on_(std::move(on)) {}

Inbox::~Inbox() {
    if (fd_ >= 0) ::close(fd_);
}

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
    if (!waiting_.empty() && !std::exchange(isReadable_, true)) makeReadable(fd_);
    if (receivers_ > 0) changed_.notify_all();
}

Inbox::Message Inbox::takeOne(std::unique_lock<std::mutex>& lock) {
    auto message = std::move(waiting_.front());
    waiting_.pop_front();
    bytes_ -= message->bytes();
    if (waiting_.empty() && !isEnded_ && std::exchange(isReadable_, false)) makeUnreadable(fd_);
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
    if (fd_ < 0) {
        isReadable_ = isReadable_ || !waiting_.empty() || isEnded_;
        fd_ = ::eventfd(isReadable_ ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
    }
    return fd_;
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
    if (!std::exchange(isReadable_, true)) makeReadable(fd_);
    changed_.notify_all();
    changed_.wait(lock, [this] { return calling_ == std::thread::id() || calling_ == std::this_thread::get_id(); });
}

bool Inbox::isEnded() const {
    std::lock_guard const lock(mutex_);
    return isEnded_;
}

}  // namespace kv::binding
