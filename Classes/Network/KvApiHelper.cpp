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

net::Failure withoutServer(KvHttpAnswer const& answer) {
    net::Failure failure{KvFailureStage::discovery, "the answer names no server"};
    failure.cause = "The API server's answer names no server";
    if (answer.status != kSuccess)
        failure.cause += ": HTTP status " + std::to_string(answer.status) + ' ' + answer.reason;
    json::value document;
    bool const isJson = readJson(answer.body, {}, document, kMostDepth).empty();
    auto const said = isJson ? stringOf(asObject(&document), "message") : std::nullopt;
    failure.serverWords = said.value_or(answer.body);
    return failure;
}

}  // namespace

std::string KvApiHelper::urlOf(std::string_view apiBase, std::string_view appId) {
    return std::string(apiBase).append(kPath).append(appId);
}

std::optional<std::string> KvApiHelper::serverOf(KvHttpAnswer const& answer, net::Failure& why) {
    if (answer.failure) {
        why = *answer.failure;
        return std::nullopt;
    }
    auto server = firstServerOf(answer.body);
    bool const isNamed = server && !server->empty();
    if (!isNamed) why = withoutServer(answer);
    return server;
}

void KvApiHelper::apiServer(std::string_view apiBase, std::string_view appId, net::NetworkOptions network,
                            std::shared_ptr<KvMainQueue> const& queue, Completion completion) {
    KvHttpRequest::getRequestWithUrl(urlOf(apiBase, appId), std::move(network), queue,
                                     [completion = std::move(completion)](KvHttpAnswer const& answer) {
                                         if (answer.failure) tellOfTooFewDescriptors();
                                         net::Failure why;
                                         auto server = serverOf(answer, why);
                                         completion(std::move(server), why);
                                     });
}

}  // namespace kv
