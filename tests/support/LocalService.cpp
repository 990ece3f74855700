#include "support/LocalService.h"

#include <chrono>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <curl/curl.h>
#include <gtest/gtest.h>

namespace kv::test {
namespace json = boost::json;
namespace {

std::vector<std::string> commandOf(LocalService::Options const& options) {
    std::vector<std::string> command{"node",      KV_SERVICE_MAIN,     "--port", std::to_string(options.port),
                                     "--control", "--exit-with-stdin", "--quiet"};
    command.insert(command.end(), options.arguments.begin(), options.arguments.end());
    return command;
}

std::chrono::steady_clock::time_point in20Seconds() {
    return std::chrono::steady_clock::now() + std::chrono::seconds(20);
}

bool tryRequest(std::string const& url, std::string const* body, std::string& answer) {
    static CURL* const curl = curl_easy_init();  // keeps its connections from one request to the next
    curl_easy_reset(curl);
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 10L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);  // the test started it
    curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
    if (body != nullptr) curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(
        curl, CURLOPT_WRITEFUNCTION, +[](char* data, std::size_t size, std::size_t count, void* to) {
            static_cast<std::string*>(to)->append(data, size * count);
            return size * count;
        });
    return curl_easy_perform(curl) == CURLE_OK;
}

std::string request(std::string const& url, std::string const* body) {
    std::string answer;
    EXPECT_TRUE(tryRequest(url, body, answer)) << url << ' ' << (body != nullptr ? *body : "");
    return answer;
}

}  // namespace

LocalService::LocalService(int port) : LocalService(Options{port}) {}

LocalService::LocalService(Options const& options) : process_(commandOf(options)) {
    auto const line = process_.readLine(in20Seconds()).value_or("");
    process_.closeOutput();
    auto const at = line.find("http");
    EXPECT_NE(at, std::string::npos) << "the service did not start: \"" << line
                                     << "\"; is service/node_modules installed?";
    if (at != std::string::npos) url_ = line.substr(at);
}

std::uint16_t LocalService::port() const {
    return static_cast<std::uint16_t>(std::stoi(url_.substr(url_.rfind(':') + 1)));
}

void LocalService::kill(int signal) {
    process_.kill(signal);
    process_.wait(in20Seconds());
}

void LocalService::freeze() { process_.kill(SIGSTOP); }
void LocalService::thaw() { process_.kill(SIGCONT); }

json::value LocalService::state() const { return json::parse(request(url_ + "/control/state", nullptr)); }

json::array LocalService::reports() const {
    return json::parse(request(url_ + "/control/reports", nullptr)).at("reports").as_array();
}

void LocalService::control(std::string const& path, json::value const& body) const {
    auto const text = json::serialize(body);
    request(url_ + "/control/" + path, &text);
}

bool LocalService::drop(std::string const& userId) const {
    auto const body = json::serialize(json::value{{"userId", userId}});
    std::string answer;
    return tryRequest(url_ + "/control/drop", &body, answer);
}

void LocalService::answer(std::string const& command, json::value const& items) const {
    control("answer", {{"command", command}, {"answer", items}});
}

void LocalService::emit(std::string const& userId, std::string const& event, json::value const& item) const {
    control("emit", {{"userId", userId}, {"event", event}, {"items", json::array{item}}});
}

}  // namespace kv::test
