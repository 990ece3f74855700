#include "Classes/Network/KvHttpRequest.h"

#include <utility>

namespace kv {
namespace {

constexpr int kWholeToTimeout = 6;

}  // namespace

KvHttpTask KvHttpRequest::taskOf(std::string url, net::NetworkOptions network) {
    KvHttpTask task;
    task.url = std::move(url);
    task.headers = {"Content-Type: application/json"};
    task.requestTimeout = net::optionsOf(network).discoveryTimeout;
    task.resourceTimeout = kWholeToTimeout * task.requestTimeout;
    task.network = std::move(network);
    return task;
}

void KvHttpRequest::getRequestWithUrl(std::string url, net::NetworkOptions network,
                                      std::shared_ptr<KvMainQueue> const& queue, Completion completion) {
    startHttp(queue, taskOf(std::move(url), std::move(network)), std::move(completion));
}

void KvHttpRequest::postRequest(boost::json::object const&, std::string const&, Completion const&) {}

}  // namespace kv
