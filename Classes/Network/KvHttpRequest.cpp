#include "Classes/Network/KvHttpRequest.h"

#include <utility>

namespace kv {
namespace {

constexpr int kWholeToTimeout = 6;

}  // namespace

void KvHttpRequest::getRequestWithUrl(std::string url, net::NetworkOptions network,
                                      std::shared_ptr<KvMainQueue> const& queue, Completion completion) {
    KvHttpTask task;
    task.url = std::move(url);
    task.headers = {"Content-Type: application/json"};
    task.requestTimeout = net::optionsOf(network).discoveryTimeout;
    task.resourceTimeout = kWholeToTimeout * task.requestTimeout;
    task.network = std::move(network);
    startHttp(queue, std::move(task), std::move(completion));
}

void KvHttpRequest::postRequest(boost::json::object const&, std::string const&, Completion const&) {}

}  // namespace kv
