// A client of the C interface: requests go in, messages come out, and a queue that a thread drives lies between them.
#pragma once

#include "Binding/ClientOptions.h"
#include "Binding/Inbox.h"
#include "Binding/Operations.h"
#include "Binding/Session.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include <boost/json.hpp>

namespace kv::binding {

/// What a function of the interface fails with.
struct Problem : std::runtime_error {
    Problem(kvpim_error_kind what, std::string const& why) : std::runtime_error(why), kind(what) {}
    kvpim_error_kind kind;
};

/// Throws BadRequest where the text is no object in JSON.
boost::json::object parseObject(std::string_view text);

/// Any thread.
class Client final : public std::enable_shared_from_this<Client> {
public:
    /// Throws Problem where the library makes no such client.
    static std::shared_ptr<Client> make(ClientOptions options);

    /// Throws BadRequest where it is no request.
    void request(std::string_view text, KvData data);
    std::size_t pending() const { return *session_.open; }
    Inbox& inbox() { return *session_.inbox; }
    /// Of the inbox, or of the queue where the caller drives it.
    int fd();
    void setCallback(std::function<void(kvpim_message const&)> callback);
    bool isPolled() const { return isPolled_; }
    /// Waits for work for so many milliseconds, or for ever, and does it.
    void poll(std::int64_t milliseconds);
    /// Nothing comes any more, and nothing is called.
    void end();

private:
    struct Request {
        boost::json::object fields;
        KvData data;
        Operation const& operation;
        Answer answer;
    };

    Client(ClientOptions const& options, std::shared_ptr<KvMainQueue> queue);
    /// Why there can be no client, if so.
    std::optional<std::string> start(ClientOptions options);
    void carryOut(Request const& request);
    /// Has the work done by who drives the queue, unless the client ends before.
    void runOnQueue(std::function<void(Client&)> work);
    void letGo();

    bool const isPolled_;
    Session session_;  // of the queue, but for its inbox and its count
    std::atomic<bool> isOver_{false};
    std::mutex polling_;
    std::atomic<std::thread::id> poller_;  // who holds it
};

}  // namespace kv::binding
