#include "Classes/Internal/KvPimRequest.h"

#include "Classes/Catagory/KvJson.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvConsole.h"
#include "SocketIO/SocketIOClient.h"

#include <cstdlib>
#include <utility>

namespace kv {
namespace {

constexpr std::chrono::seconds kLongestFarewell{1};

}  // namespace

std::int64_t KvCodes::of(KvPimResult const& result) const {
    if (result.code == 0 && !refusalBeforeSuccess) return 0;
    if (noAck && result.isAckTimeout) return *noAck;
    if (tooManyRequests && result.errorString == "Too Many Requests") return *tooManyRequests;
    if (result.code == 0) return 0;
    for (auto const& row : passed) {
        if (row.result != 0 && row.result == result.code) return row.code;
    }
    return other;
}

void KvReport::failure(std::int64_t code, bool isAnswer, std::string const& channelId) const {
    if (about == About::nothing) return;
    std::string name(interface);
    if (isAnswer) name += "_block_invoke";
    auto& reporter = LoganManager::sharedInstance();
    if (about == About::user) {
        reporter.userAttributes(std::string(action), name, 0, code);
    } else {
        reporter.channelAttributes(channelId, std::string(action), name, 0, code);
    }
}

void endOfWrongThread(char const* call) {
    printLine(KvConsoleStream::error, "kvpim: \"" + std::string(call) +
                                          "\" was called from a thread that is none of its client's: call it " +
                                          "from the thread that drives its main queue, or post to that queue");
    drainConsole(kLongestFarewell);
    std::abort();
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

boost::json::object const* dictionaryOf(SocketData const& data, boost::json::object const* object,
                                        std::string_view key) {
    auto const* found = objectOf(object, key);
    return found != nullptr && data.binary(*valueOf(object, key)) ? nullptr : found;
}

boost::json::object const* dictionaryOf(KvPimResult const& result, std::string_view key) {
    return dictionaryOf(*result.data, result.response, key);
}

void emitCommand(KvMainQueue& queue, std::shared_ptr<SocketIOClient> const& socket, std::string_view command,
                 SocketItems payload, std::chrono::milliseconds timeout, KvAnswer answered) {
    if (!socket) {
        auto timer = std::make_shared<KvQueueTimer>();
        *timer = queue.after(timeout, [timer, answered = std::move(answered)] {
            boost::json::array const items{kNoAck};
            answered(KvPimResult::resultWithArray(SocketData(items, {})));
        });
        return;
    }
    payload.values.emplace(payload.values.begin(), command);
    socket->emitWithAck("command", std::move(payload))
        .timingOutAfter(timeout, [answered = std::move(answered)](SocketData const& data) {
            answered(KvPimResult::resultWithArray(data));
        });
}

}  // namespace kv
