#include "Service.h"

#include "Stage.h"

#include <memory>

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <curl/curl.h>

namespace demo {
namespace {

std::size_t append(char const* data, std::size_t, std::size_t size, void* text) {
    static_cast<std::string*>(text)->append(data, size);
    return size;
}

/// GET, or POST when there is a body.
std::string request(std::string const& url, char const* body = nullptr) {
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> const handle(curl_easy_init(), curl_easy_cleanup);
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> const headers(
        curl_slist_append(nullptr, "Content-Type: application/json"), curl_slist_free_all);
    std::string answer;
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    if (body != nullptr) curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDS, body);
    curl_easy_setopt(handle.get(), CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT, 5L);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &answer);
    auto const result = curl_easy_perform(handle.get());
    if (result != CURLE_OK) throw Failure(url + ": " + curl_easy_strerror(result));
    return answer;
}

}  // namespace

void Service::cutConnection(std::string const& userId) const {
    request(url_ + "/control/drop", ("{\"userId\":\"" + userId + "\"}").c_str());
}

Service::Reports Service::reports() const {
    Reports counts;
    auto const answer = boost::json::parse(request(url_ + "/control/reports"));
    for (auto const& report : answer.at("reports").as_array()) {
        ++counts[std::string(report.at("event").at("type").as_string())];
    }
    return counts;
}

}  // namespace demo
