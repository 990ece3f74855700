#include "Classes/Network/KvApiHelper.h"

#include "Classes/Catagory/KvJson.h"
#include "Classes/Network/KvHttpRequest.h"
#include "Platform/KvFiles.h"

#include <utility>

#include <boost/json/parse.hpp>

namespace kv {
namespace json = boost::json;
namespace {

constexpr std::string_view kPath = "/config/api/v1/pim-server?appId=";
constexpr std::int64_t kSuccess = 200;

std::optional<std::string> firstServerOf(std::string_view answer) {
    json::error_code failure;
    json::value const document = json::parse(answer, failure);
    if (failure) return std::nullopt;
    auto const* object = asObject(&document);
    if (asInteger(valueOf(object, "code")) != kSuccess) return std::nullopt;
    auto const* servers = arrayOf(objectOf(object, "data"), "brivelServers");
    if (servers == nullptr || servers->empty()) return std::nullopt;
    return asString(&servers->front()).value_or("");
}

}  // namespace

void KvApiHelper::apiServer(std::string_view apiBase, std::string_view appId, std::string caFile,
                            Completion completion) {
    std::string url(apiBase);
    url.append(kPath).append(appId);
    KvHttpRequest::getRequestWithUrl(
        std::move(url), std::move(caFile),
        [completion = std::move(completion)](std::optional<std::string> data, std::optional<std::string> const& error) {
            if (error) tellOfTooFewDescriptors();
            completion(error || !data ? std::nullopt : firstServerOf(*data));
        });
}

}  // namespace kv
