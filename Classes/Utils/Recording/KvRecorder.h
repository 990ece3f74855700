// What one client tells its record: its calls, what becomes of them, and, as the recorder of its sockets, what goes
// over their connections. Without a recording there is none.
#pragma once

#include "Classes/Utils/Recording/KvRecordFile.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketData.h"
#include "SocketIO/SocketRecorder.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <boost/json/object.hpp>

namespace kv {

namespace net {
struct Failure;
}

class KvRecorder final : public SocketRecorder, public std::enable_shared_from_this<KvRecorder> {
public:
    /// `made`: how the client is made. `secrets`: what is masked wherever it stands, beside tokens.
    KvRecorder(std::shared_ptr<KvRecordFile> file, std::shared_ptr<KvMainQueue> const& queue,
               boost::json::object const& made, std::vector<std::string> secrets);

    KvPimRecording const& recording() const { return file_->recording(); }

    // Main queue.
    /// A number for a call.
    std::uint64_t nextCall() { return file_->nextCall(); }
    /// The application calls an operation; without `payload` it was refused.
    void called(std::uint64_t call, std::string_view method, std::string_view command = {},
                SocketItems const* payload = nullptr);
    void ended(std::uint64_t call, std::int64_t code);
    /// A call of what is no command; a token among its arguments is masked from now on, wherever it stands.
    std::uint64_t called(std::string_view method, boost::json::object const& arguments);
    /// The same. Returns the completion, which tells the record first.
    template <class... Arguments>
    std::function<void(Arguments...)> called(std::string_view method, boost::json::object const& arguments,
                                             std::function<void(Arguments...)> done);
    void discovering(std::string_view apiServer);
    void discovered(std::string_view server, net::Failure const& why);
    /// The application has let go of the client.
    void gone() { life("gone", {}); }
    /// While it lives, calls are the client's own: a reconnection brings back what was there.
    class Restoring;

    // Engine queue.
    std::uint64_t nextConnection() override { return file_->nextConnection(); }
    void onDialing(std::uint64_t connection, std::string_view url, std::string_view target) override;
    void onOpen(std::uint64_t connection) override;
    void onLost(std::uint64_t connection, KvFailureStage stage, std::string_view reason,
                std::string_view cause) override;
    void onLeft(std::uint64_t connection) override;
    void onTextReceived(std::uint64_t connection, std::string_view text) override;
    void onBinaryReceived(std::uint64_t connection, std::span<std::uint8_t const> bytes) override;
    void onTextSent(std::uint64_t connection, std::string_view text) override;
    void onBinarySent(std::uint64_t connection, std::span<std::uint8_t const> bytes) override;

private:
    using Kind = KvRecordEntry::Kind;
    void addToken(std::string const& token);
    std::chrono::microseconds now() const;
    KvRecordRules rules() const;
    std::string clean(std::string_view text) const { return withoutSecrets(text, rules()); }
    boost::json::object fields(std::uint64_t connection = 0) const;
    void add(Kind kind, boost::json::object fields, std::string text = {}, std::size_t size = 0);
    void addBytes(Kind kind, std::uint64_t connection, std::span<std::uint8_t const> bytes);
    void life(std::string_view step, boost::json::object const& more, std::uint64_t connection = 0);

    std::shared_ptr<KvRecordFile> const file_;
    std::uint64_t const client_;
    // The queue's clock, which may be one that is moved by hand. Weak: what waits on a queue may hold the recorder.
    std::weak_ptr<KvMainQueue> const queue_;
    KvMainQueue::Clock::time_point const began_;
    std::chrono::microseconds const offset_;  // of that, in the record
    std::size_t const otherSecrets_;          // than tokens
    bool isRestoring_ = false;                // main queue

    std::mutex mutable mutex_;
    // Guarded by mutex_.
    std::shared_ptr<std::vector<std::string> const> secrets_;
};

class KvRecorder::Restoring {
public:
    explicit Restoring(std::shared_ptr<KvRecorder> const& recorder) : recorder_(recorder) { set(true); }
    Restoring(Restoring const&) = delete;
    Restoring& operator=(Restoring const&) = delete;
    ~Restoring() { set(false); }

private:
    void set(bool isRestoring) const {
        if (recorder_) recorder_->isRestoring_ = isRestoring;
    }
    std::shared_ptr<KvRecorder> const recorder_;
};

template <class... Arguments>
std::function<void(Arguments...)> KvRecorder::called(std::string_view method, boost::json::object const& arguments,
                                                     std::function<void(Arguments...)> done) {
    return [self = shared_from_this(), call = called(method, arguments), done = std::move(done)](Arguments... results) {
        self->ended(call, std::get<sizeof...(Arguments) - 1>(std::tie(results...)));  // the code is the last
        if (done) done(results...);
    };
}

}  // namespace kv
