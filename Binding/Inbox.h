// What a client has told and nobody has received yet: answers and events, in their order.
#pragma once

#include "Binding/kvpim.h"
#include "Platform/KvData.h"
#include "Platform/KvSystem.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <boost/json.hpp>

struct kvpim_message {
    std::string text;
    kv::KvData data;

    std::size_t bytes() const { return sizeof *this + text.size() + (data ? data->size() : 0); }
};

namespace kv::binding {

/// One thread at a time puts into it, any number take out of it.
class Inbox {
public:
    using Message = std::unique_ptr<kvpim_message>;

    struct Events {
        std::function<void()> full;   ///< to who puts: more than `mostBytes` wait
        std::function<void()> room;   ///< to who takes: half of it is left
        std::function<void()> first;  ///< to who puts: `wake` is to be called, once all that comes with it is there
    };

    /// `attachesData`: whether raw data stand beside the text of a message.
    Inbox(std::size_t mostBytes, bool attachesData, Events on);
    Inbox(Inbox const&) = delete;
    Inbox& operator=(Inbox const&) = delete;

    /// Whoever waits is told that there is something: once for all that came in one turn, as each call of the kind
    /// costs more than a message.
    void wake();

    bool attachesData() const { return attachesData_; }
    void put(boost::json::object const& line, KvData data = nullptr);

    // Any thread.
    /// Waits for a message until `end`, or for ever without one.
    kvpim_outcome take(std::optional<std::chrono::steady_clock::time_point> end, Message& message);
    /// Readable while there is a message; -1 when the system has no descriptors left.
    int fd();
    /// Who gets the messages from now on, and those that wait; empty for `take`. To be called by who puts.
    void setCallback(std::function<void(kvpim_message const&)> callback);
    /// Nothing comes any more. Waits for a callback at work on another thread.
    void end();
    bool isEnded() const;

private:
    Message takeOne(std::unique_lock<std::mutex>& lock);
    void hand(kvpim_message const& message);

    std::size_t const mostBytes_;
    bool const attachesData_;
    Events const on_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    std::deque<Message> waiting_;
    std::size_t bytes_ = 0;
    bool isFull_ = false, isEnded_ = false;
    bool isToWake_ = false;  // `first` was told
    KvWakeUp wakeUp_;        // open once somebody asked for it
    bool isReadable_ = false;
    std::size_t receivers_ = 0;
    std::thread::id calling_;  // who is in the callback

    std::function<void(kvpim_message const&)> callback_;  // of who puts
};

}  // namespace kv::binding
