#include "Classes/Internal/KvOperation.h"

#include "Classes/Utils/Logan/LoganManager.h"

namespace kv {

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

}  // namespace kv
