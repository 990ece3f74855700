#include "Classes/Internal/KvPimRequests.h"

#include "Classes/Utils/KvLog.h"

#include <string>
#include <utility>

namespace kv {

void emitCommand(KvMainQueue& queue, std::shared_ptr<SocketIOClient> const& socket, std::string_view command,
                 SocketItems payload, std::chrono::milliseconds timeout, SocketIOClient::Handler answered) {
    if (!socket) {
        auto timer = std::make_shared<KvQueueTimer>();
        *timer = queue.after(timeout, [timer, answered = std::move(answered)] {
            boost::json::array const items{kNoAck};
            answered(SocketData(items, SocketNoAck::notConnected));
        });
        return;
    }
    payload.values.emplace(payload.values.begin(), command);
    socket->emitWithAck("command", std::move(payload)).timingOutAfter(timeout, std::move(answered));
}

net::Failure failureOfRequest(std::int64_t code, KvPimResult const* result, std::chrono::milliseconds timeout) {
    net::Failure failure{KvFailureStage::request};
    if (result == nullptr) {
        failure.cause = code == KvPimErrorNotLogin ? "The client is not logged in"
                                                   : "The arguments are not what the operation takes; nothing was sent";
    } else if (result->isAckTimeout) {
        auto const noAck = result->data != nullptr ? result->data->noAck() : SocketNoAck::unanswered;
        failure.cause = noAck == SocketNoAck::notConnected ? "There is no connection; nothing was sent"
                        : noAck == SocketNoAck::noRoom     ? "There was no room for it, since too much waits to be sent"
                                                       : "No answer within " + std::to_string(timeout.count()) + " ms";
    } else {
        failure.cause = "The server refused it, with the result " + std::to_string(result->code);
        failure.serverWords = result->errorString;
    }
    return failure;
}

SocketItems payloadOf(boost::json::object dictionary) {
    SocketItems payload;
    payload.values.emplace_back(std::move(dictionary));
    return payload;
}

void logRequest(KvOperation const& operation, SocketItems const& payload) {
    if (operation.logLine.empty()) return;
    KvLog::shared().info(operation.logLine, KvLogPayload{payload.values.front(), payload.attachments});
}

void recordEnd(std::weak_ptr<KvPimFailures> const& client, std::uint64_t call, std::int64_t code) {
    if (auto const recorder = KvPimFailures::recorderOf(client)) recorder->ended(call, code);
}

}  // namespace kv
