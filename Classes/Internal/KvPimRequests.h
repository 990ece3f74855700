// The one way in which the client asks the server for something: a command with an acknowledgement and a time-out,
// whose outcome becomes the operation's own code (KvOperation.h).
#pragma once

#include "Classes/Internal/KvOperation.h"
#include "Classes/Internal/KvPimFailures.h"
#include "Classes/Internal/KvPimShared.h"
#include "Classes/KvPimKit.h"
#include "Classes/Model/KvPimResult.h"
#include "Classes/Utils/Recording/KvRecorder.h"
#include "SocketIO/SocketIOClient.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kv {

/// Sends "command" with the command's name and a payload (the first of `payload.values`). `answered` is called exactly
/// once, on the main queue, never inside the call; without a socket that happens at the time-out, like without an
/// answer.
void emitCommand(KvMainQueue& queue, std::shared_ptr<SocketIOClient> const& socket, std::string_view command,
                 SocketItems payload, std::chrono::milliseconds timeout, SocketIOClient::Handler answered);

/// A payload without binary data.
SocketItems payloadOf(boost::json::object dictionary);
/// Logs the operation's line, if it has one, with the payload.
void logRequest(KvOperation const& operation, SocketItems const& payload);

/// What is known of a request that failed. `result` is null where nothing was sent.
net::Failure failureOfRequest(std::int64_t code, KvPimResult const* result, std::chrono::milliseconds timeout);

/// Tells the record what a call has ended with, if the client is still there.
void recordEnd(std::weak_ptr<KvPimFailures> const& client, std::uint64_t call, std::int64_t code);

/// Calls what the application gave, if it gave something.
template <class Completion, class... Arguments>
void complete(Completion const& done, Arguments const&... arguments) {
    if (done) done(arguments...);
}

/// The end of a request whose answer tells nothing but a code.
template <class Completion>
auto completing(Completion done) {
    return [done = std::move(done)](std::int64_t code, KvPimResult const*) { complete(done, code); };
}

class KvPimRequests {
public:
    KvPimRequests(KvPimShared& client, KvPimFailures& failures) : client_(client), failures_(failures) {}

    /// Runs one operation: refuses it when not logged in or when its arguments are invalid, else sends what `payload`
    /// makes. `finish(code, result)` is called exactly once; `result` is null for what was refused here. Reports about
    /// channels name `channelId`, failures the method.
    template <class MakePayload, class Finish>
    void request(KvOperation const& operation, bool isValid, MakePayload const& payload, Finish finish,
                 std::string const& channelId = {}, char const* method = __builtin_FUNCTION()) {
        requestOn(client_.socket.lock(), operation, isValid, payload, std::move(finish), channelId, method);
    }
    /// The same on a given socket, which may be null: channel objects keep the one that they were given.
    template <class MakePayload, class Finish>
    void requestOn(std::shared_ptr<SocketIOClient> const& on, KvOperation const& operation, bool isValid,
                   MakePayload const& payload, Finish finish, std::string const& channelId, char const* method);
    /// The end of a request that changes what is kept for the session: `record(state)` records the change once the
    /// server has accepted it.
    template <class Record>
    auto recording(KvUnansweredChanges KvPimStateHelper::*changes, KvPimKit::Completion done, Record record);

private:
    /// How long an answer to the operation is waited for.
    std::chrono::milliseconds timeoutOf(KvOperation const& operation) const {
        auto const ofAll = net::optionsOf(client_.options.network).requestTimeout;
        return ofAll.count() > 0 ? ofAll : operation.timeout;
    }

    /// What is left of the client for the end of a request, which may come after it.
    struct End {
        std::weak_ptr<KvPimFailures> client;
        std::shared_ptr<KvPimCounters> counters;
    };
    std::shared_ptr<End const> const& end() {
        if (!end_) end_ = std::make_shared<End const>(End{failures_.handle(), client_.counters});
        return end_;
    }

    KvPimShared& client_;
    KvPimFailures& failures_;
    std::shared_ptr<End const> end_;
};

template <class MakePayload, class Finish>
void KvPimRequests::requestOn(std::shared_ptr<SocketIOClient> const& on, KvOperation const& operation, bool isValid,
                              MakePayload const& payload, Finish finish, std::string const& channelId,
                              char const* method) {
    auto const timeout = timeoutOf(operation);
    auto const& recorder = client_.recorder;
    auto const call = recorder ? recorder->nextCall() : 0;
    // Keeps nothing of this client: it may be gone when the answer comes, or when a completion returns.
    auto conclude = [&operation, channelId, method, timeout, call, end = end(), finish = std::move(finish)](
                        std::int64_t code, KvPimResult const* result) {
        end->counters->onEnd(code, result);
        auto const& client = end->client;
        if (call != 0) recordEnd(client, call, code);
        auto const& report = operation.report;
        bool const first = report.order == KvReport::Order::beforeCompletion;
        bool const isAnswer = result != nullptr;
        bool const isReported = code != 0 && !(isAnswer && report.needsClient && !KvPimFailures::living(client));
        bool const differs = report.codeOfInvalidArgument != 0 && !isAnswer && code == operation.invalidArgument;
        auto const reported = differs ? report.codeOfInvalidArgument : code;
        if (isReported && first) report.failure(reported, isAnswer, channelId);
        KvPimFailures::concluding(
            client, method, code, [&] { return failureOfRequest(code, result, timeout); },
            [&] { finish(code, result); });
        if (isReported && !first) report.failure(reported, isAnswer, channelId);
    };
    auto const refuse = [&](std::int64_t code) {
        if (recorder) recorder->called(call, method, operation.command);
        conclude(code, nullptr);
    };
    if (!client_.stateManager->login) return refuse(KvPimErrorNotLogin);
    if (!isValid) return refuse(operation.invalidArgument);
    SocketItems items = payload();
    if (recorder) recorder->called(call, method, operation.command, &items);
    logRequest(operation, items);
    client_.counters->onRequest();
    emitCommand(*client_.mainQueue, on, operation.command, std::move(items), timeout,
                [&operation, conclude = std::move(conclude)](SocketData const& answer) {
                    auto const result = KvPimResult::resultWithArray(answer);
                    conclude(operation.codes.of(result), &result);
                });
}

template <class Record>
auto KvPimRequests::recording(KvUnansweredChanges KvPimStateHelper::*changes, KvPimKit::Completion done,
                              Record record) {
    auto const state = std::shared_ptr<KvPimStateHelper>(client_.weak_from_this().lock(), &client_.stateHelper);
    return [weak = std::weak_ptr(state), change = (client_.stateHelper.*changes).begin(), done = std::move(done),
            record = std::move(record)](std::int64_t code, KvPimResult const*) {
        auto const self = weak.lock();
        if (code == 0 && self) record(*self);
        complete(done, code);
    };
}

}  // namespace kv
