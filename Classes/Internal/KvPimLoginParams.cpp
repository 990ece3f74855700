#include "Classes/Internal/KvPimLoginParams.h"

#include "Classes/Catagory/KvDate.h"
#include "Classes/Catagory/KvJson.h"

#include <utility>

namespace kv {
namespace json = boost::json;

void KvPimLoginParams::loginWithToken(std::string newToken, std::string newAppId, std::string newUserId,
                                      std::int64_t newTimestamp) {
    token = std::move(newToken);
    appId = std::move(newAppId);
    userId = std::move(newUserId);
    timestamp = newTimestamp;
    login = true;
}

void KvPimLoginParams::renewToken(std::string newToken, std::int64_t newTimestamp) {
    token = std::move(newToken);
    timestamp = newTimestamp;
}

void KvPimLoginParams::logout() { *this = {}; }

json::object KvPimLoginParams::generateSocketConfig() const {
    if (!login) return {};
    return socketConfigOf(
        {{"token", token}, {"userId", userId}, {"timestamp", timestamp}, {"connectTimeStamp", currentTimeStamp()}},
        appId);
}

json::object socketConfigOf(json::object const& credentials, std::string const& appId) {
    json::object connectParams{{"app", "brivel"}, {"roomId", appId}, {"token", jsonString(credentials).value_or("")}};
    return {{"compress", true}, {"forceWebsockets", true}, {"connectParams", std::move(connectParams)}};
}

}  // namespace kv
