#include "Classes/Internal/KvPimDebugInfo.h"

#include "Classes/Utils/KvBundle.h"

namespace kv {
namespace json = boost::json;
namespace {

void addIfSet(json::object& model, char const* key, std::string const& value) {
    if (!value.empty()) model[key] = value;
}

}  // namespace

json::object KvPimBrivelSocket::toJsonModel() const {
    json::object model;
    addIfSet(model, "apiServer", apiServer);
    addIfSet(model, "brivelServer", brivelServer);
    addIfSet(model, "connectionId", connectionId);
    return model;
}

json::object KvPimLoginArguments::toJsonModel() const {
    return {{"userId", userId}, {"token", token}, {"timestamp", timestamp}};
}

void KvPimDebugInfo::loginWithToken(std::string token, std::string userId, double timestamp) {
    loginArguments_ = {std::move(userId), std::move(token), timestamp};
}

void KvPimDebugInfo::logout() {
    loginArguments_.reset();
    brivelSocket_.connectionId.clear();
    brivelSocket_.brivelServer.clear();
}

json::object KvPimDebugInfo::toJsonModel() const {
    json::object model;
    if (loginArguments_) model["loginArguments"] = loginArguments_->toJsonModel();
    model["brivelSocket"] = brivelSocket_.toJsonModel();
    model["sdkVersion"] = kBundleShortVersion;
    return model;
}

json::object pressureModel(SocketPressure const& pressure) {
    return {{"bytesQueued", pressure.bytesQueued},
            {"mostBytesQueued", pressure.mostBytesQueued},
            {"dropped", pressure.dropped},
            {"overdue", pressure.overdue},
            {"bytesUnhandled", pressure.bytesUnhandled},
            {"mostBytesUnhandled", pressure.mostBytesUnhandled},
            {"readingPauses", pressure.readingPauses}};
}

}  // namespace kv
