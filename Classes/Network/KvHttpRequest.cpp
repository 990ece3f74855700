#include "Classes/Network/KvHttpRequest.h"

#include "Classes/Network/KvHttpSession.h"

#include <utility>

namespace kv {

void KvHttpRequest::getRequestWithUrl(std::string url, std::string caFile, Completion completion) {
    KvHttpTask task;
    task.url = std::move(url);
    task.headers = {"Content-Type: application/json"};
    task.caFile = std::move(caFile);
    task.requestTimeout = std::chrono::seconds(6);
    task.resourceTimeout = std::chrono::seconds(36);
    KvHttpSession::shared().start(std::move(task), [completion = std::move(completion)](KvHttpAnswer answer) {
        if (answer.error) return completion(std::nullopt, std::move(answer.error));
        completion(std::move(answer.body), std::nullopt);
    });
}

void KvHttpRequest::postRequest(boost::json::object const&, std::string const&, Completion const&) {}

}  // namespace kv
