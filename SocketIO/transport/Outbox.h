// What waits to be sent on one connection. The main queue puts messages in, the engine takes them out; the lock is held
// only to copy or to swap.
#pragma once

#include "Platform/KvData.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
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

    explicit Outbox(std::size_t mostBytes) : mostBytes_(mostBytes) {}

    /// `queuedFirst` when the engine must be woken.
    Put put(std::string_view text, std::vector<KvData> const& attachments, Time deadline) {
        Message message{text.size(), attachments.size(), text.size(), deadline};
        for (auto const& attachment : attachments) message.bytes += attachment ? attachment->size() : 0;
        std::lock_guard lock(mutex_);
        if (message.bytes > mostBytes_ - std::min(bytes_, mostBytes_)) return Put::full;
        bytes_ += message.bytes;
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

    /// So many bytes do not wait any more.
    void release(std::size_t bytes) {
        std::lock_guard lock(mutex_);
        bytes_ -= bytes;
    }

private:
    std::size_t const mostBytes_;
    std::mutex mutex_;
    // Guarded by mutex_.
    Content content_;
    std::size_t bytes_ = 0;
    bool isEngineAwake_ = false;
};

}  // namespace kv::sio
