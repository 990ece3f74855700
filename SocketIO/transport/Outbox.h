// What waits to be sent on one connection. The main queue puts messages in, the engine takes them out; the lock is held
// only to copy or to swap.
#pragma once

#include "Platform/KvData.h"
#include "SocketIO/SocketMetrics.h"
#include "SocketIO/SocketPressure.h"
#include "SocketIO/transport/HeapTrim.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv::sio {

class Outbox {
public:
    using Time = std::chrono::steady_clock::time_point;
    enum class Put { queued, queuedFirst, full };

    struct Message {
        std::size_t textBytes;
        std::size_t attachments;
        std::size_t bytes;  // of the text and the attachments
        /// When nobody waits for the answer any more, on the main queue's clock; what still waits then is not sent.
        Time deadline;
    };
    /// Messages in order, their texts and their attachments each in one row.
    struct Content {
        std::vector<Message> messages;
        std::string texts;
        std::vector<KvData> attachments;
    };

    /// `onRoom` is called by whoever takes messages out, with no lock held: once what waits is at most half of the
    /// bound again, after it was more or after something found no room.
    explicit Outbox(std::size_t mostBytes, std::function<void()> onRoom = {},
                    std::shared_ptr<SocketMetrics> metrics = std::make_shared<SocketMetrics>())
        : mostBytes_(mostBytes), onRoom_(std::move(onRoom)), metrics_(std::move(metrics)) {}
    Outbox(Outbox const&) = delete;
    Outbox& operator=(Outbox const&) = delete;
    ~Outbox() {
        metrics_->lostMessages.fetch_add(messages_, std::memory_order_relaxed);
        metrics_->lostBytes.fetch_add(bytes_, std::memory_order_relaxed);
    }

    /// `queuedFirst` when the engine must be woken.
    Put put(std::string_view text, std::vector<KvData> const& attachments, Time deadline) {
        Message message{text.size(), attachments.size(), text.size(), deadline};
        for (auto const& attachment : attachments) message.bytes += attachment ? attachment->size() : 0;
        std::lock_guard lock(mutex_);
        if (message.bytes > mostBytes_ - std::min(bytes_, mostBytes_)) {
            isTight_ = true;
            ++dropped_;
            metrics_->noRoom.add();
            return Put::full;
        }
        ++messages_;
        bytes_ += message.bytes;
        metrics_->queued.messages.add();
        metrics_->queued.bytes.add(message.bytes);
        mostWaited_ = std::max(mostWaited_, bytes_);
        if (bytes_ > mostBytes_ / 2) isTight_ = true;
        if (bytes_ > kBurstBytes) isBurst_.store(true, std::memory_order_relaxed);
        content_.messages.push_back(message);
        content_.texts.append(text);
        content_.attachments.insert(content_.attachments.end(), attachments.begin(), attachments.end());
        return std::exchange(isEngineAwake_, true) ? Put::queued : Put::queuedFirst;
    }

    /// Swaps everything that waits into `content`, which is empty. Returns false when nothing waits: the engine may
    /// sleep.
    bool take(Content& content) {
        std::lock_guard lock(mutex_);
        std::swap(content_, content);
        if (content.messages.empty()) isEngineAwake_ = false;
        return !content.messages.empty();
    }

    enum class Outcome { sent, overdue };
    /// A message that was taken out is on its way, or will never be: so many bytes do not wait any more.
    void release(std::size_t bytes, Outcome outcome) {
        bool hasRoom = false;
        metrics_->unqueued.messages.add();
        metrics_->unqueued.bytes.add(bytes);
        if (outcome == Outcome::overdue) metrics_->overdue.add();
        {
            std::lock_guard lock(mutex_);
            --messages_;
            bytes_ -= bytes;
            if (outcome == Outcome::overdue) ++overdue_;
            hasRoom = bytes_ <= mostBytes_ / 2 && std::exchange(isTight_, false);
        }
        if (hasRoom && onRoom_) onRoom_();
    }

    /// How many bytes wait.
    std::size_t bytes() const {
        std::lock_guard lock(mutex_);
        return bytes_;
    }
    /// Whether there is room, as `onRoom` has it.
    bool hasRoom() const { return bytes() <= mostBytes_ / 2; }
    /// Writes down what concerns sending.
    void tell(SocketPressure& pressure) const {
        std::lock_guard lock(mutex_);
        pressure.bytesQueued = bytes_;
        pressure.mostBytesQueued = mostWaited_;
        pressure.dropped = dropped_;
        pressure.overdue = overdue_;
        pressure.isTight = isTight_;
    }
    /// Whether a burst has waited since it was asked last.
    bool takeBurst() { return isBurst_.load(std::memory_order_relaxed) && isBurst_.exchange(false); }

private:
    std::size_t const mostBytes_;
    std::function<void()> const onRoom_;
    std::shared_ptr<SocketMetrics> const metrics_;
    std::atomic<bool> isBurst_{false};
    std::mutex mutable mutex_;
    // Guarded by mutex_.
    Content content_;
    std::size_t messages_ = 0, bytes_ = 0;
    bool isEngineAwake_ = false;
    bool isTight_ = false;  // `onRoom` is owed
    std::size_t mostWaited_ = 0;
    std::uint64_t dropped_ = 0, overdue_ = 0;
};

}  // namespace kv::sio
