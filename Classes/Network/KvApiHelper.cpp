#include "Classes/Network/KvApiHelper.h"

#include "Classes/Catagory/KvJson.h"
#include "Classes/Network/KvHttpRequest.h"
#include "Platform/KvFiles.h"
#include "Platform/KvJsonText.h"

#include <utility>

#include <boost/json/value.hpp>

namespace kv {
namespace json = boost::json;
namespace {

constexpr std::string_view kPath = "/config/api/v1/pim-server?appId=";
constexpr std::int64_t kSuccess = 200;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kMostDepth = 1000;  // of what nobody reads; each level takes of the thread's stack

std::optional<std::string> firstServerOf(std::string_view answer) {
    if (answer.starts_with(kByteOrderMark)) answer.remove_prefix(kByteOrderMark.size());
    json::value document;
    if (!readJson(answer, {}, document, kMostDepth).empty()) return std::nullopt;
    auto const* object = asObject(&document);
    if (asInteger(valueOf(object, "code")) != kSuccess) return std::nullopt;
    auto const* servers = arrayOf(objectOf(object, "data"), "brivelServers");
    if (servers == nullptr || servers->empty()) return std::nullopt;
    return asString(&servers->front()).value_or("");
}

}  // namespace

void KvApiHelper::apiServer(std::string_view apiBase, std::string_view appId, net::NetworkOptions network,
                            std::shared_ptr<KvMainQueue> const& queue, Completion completion) {
    std::string url(apiBase);
    url.append(kPath).append(appId);
    KvHttpRequest::getRequestWithUrl(
        std::move(url), std::move(network), queue,
        [completion = std::move(completion)](std::optional<std::string> data, std::optional<std::string> const& error) {
            if (error) tellOfTooFewDescriptors();
            if (error || !data) return completion(std::nullopt, error.value_or("there is no answer"));
            completion(firstServerOf(*data), "the answer names no server");
        });
}

}  // namespace kv
