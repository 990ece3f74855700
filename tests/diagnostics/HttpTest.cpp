// The HTTP layer and server discovery, against a server in this process.
#include "Classes/Network/KvApiHelper.h"
#include "Net/Http.h"
#include "Platform/KvEngineThread.h"
#include "diagnostics/Shell.h"
#include "support/Certificates.h"
#include "support/HttpTestServer.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include <boost/json/object.hpp>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>

namespace {

std::atomic<bool> resolverMayGoOn{false};

}  // namespace

// Stands in the way of the system's resolver: one name hangs, one takes its time.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(char const* node, char const* service,
                                                                  addrinfo const* hints, addrinfo** found) {
    if (node != nullptr && std::string_view(node) == "hangs.example") {
        for (int i = 0; i < 60'000 && !resolverMayGoOn; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return EAI_AGAIN;
    }
    bool const isSlow = node != nullptr && std::string_view(node) == "slow.example";
    if (isSlow) std::this_thread::sleep_for(std::chrono::milliseconds(200));
    static auto const system = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return system(isSlow ? "127.0.0.1" : node, service, hints, found);
}

namespace kv {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Ending = HttpTestAnswer::Ending;

HttpTestServer::Script always(HttpTestAnswer answer) {
    return [answer = std::move(answer)](HttpTestRequest const&) { return answer; };
}

KvHttpAnswer answerTo(KvHttpTask task) {
    std::promise<KvHttpAnswer> promise;
    if (task.requestTimeout == 0ms) task.requestTimeout = 10s;
    startHttp(engineThreadQueue(), std::move(task), [&](KvHttpAnswer answer) { promise.set_value(std::move(answer)); });
    return promise.get_future().get();
}

KvHttpTask taskFor(std::string url) {
    KvHttpTask task;
    task.url = std::move(url);
    return task;
}

std::optional<std::string> discovered(std::string const& apiBase, std::string const& appId = "app",
                                      net::NetworkOptions const& network = {}) {
    std::promise<std::optional<std::string>> promise;
    KvApiHelper::apiServer(apiBase, appId, network, engineThreadQueue(),
                           [&](std::optional<std::string> const& server, auto&) { promise.set_value(server); });
    return promise.get_future().get();
}

TEST(Discovery, TakesTheFirstServerOfAnAnswerWithCode200) {
    struct Case {
        std::string body;
        std::optional<std::string> want;
    };
    std::string const brackets(900, '['), closing(900, ']');
    for (auto const& c : std::vector<Case>{
             {R"({"code":200,"data":{"brivelServers":["https://s1","https://s2"]}})", "https://s1"},
             {"\xEF\xBB\xBF"
              R"({"code":200,"data":{"brivelServers":["https://s1"]}})",
              "https://s1"},
             {R"({"code":200,"x":)" + brackets + closing + R"(,"data":{"brivelServers":["s"]}})", "s"},
             {R"({"code":200,"data":{"brivelServers":["s"],"x":)" + std::string(1000000, '['), std::nullopt},
             {R"({"code":"200","data":{"brivelServers":["https://s1"]}})", "https://s1"},
             {R"({"code":200,"data":{"brivelServers":[5,"https://s2"]}})", ""},
             {R"({"code":200,"data":{"brivelServers":[]}})", std::nullopt},
             {R"({"code":200,"data":{"brivelServers":"https://s1"}})", std::nullopt},
             {R"({"code":200,"data":[]})", std::nullopt},
             {R"({"code":200})", std::nullopt},
             {R"({"code":500,"data":{"brivelServers":["https://s1"]}})", std::nullopt},
             {R"({"data":{"brivelServers":["https://s1"]}})", std::nullopt},
             {"200", std::nullopt},
             {"null", std::nullopt},
             {"<html>", std::nullopt},
             {"", std::nullopt},
             {R"({"code":200,"data":{"brivelServers":["https://s1")", std::nullopt},
         }) {
        // The status is not looked at: only what the answer says.
        HttpTestServer const server(always({.status = 503, .body = c.body}));
        EXPECT_EQ(discovered(server.url()), c.want) << c.body;
    }
}

TEST(Discovery, ReadsACompressedAnswer) {
    static constexpr char kGzip[] =  // {"code":200,"data":{"brivelServers":["https://s1"]}}
        "\037\213\010\000\000\000\000\000\002\003\253\126\112\316\117\111"
        "\125\262\062\062\060\320\121\112\111\054\111\124\262\252\126\112"
        "\052\312\054\113\315\011\116\055\052\113\055\052\126\262\212\126"
        "\312\050\051\051\050\266\322\327\057\066\124\212\255\255\005\000"
        "\070\224\112\003\064\000\000\000";
    std::string const body(kGzip, sizeof kGzip - 1);
    HttpTestServer const server(always({.headers = {"Content-Encoding: gzip"}, .body = body}));
    EXPECT_EQ(discovered(server.url()), "https://s1");
}

TEST(Discovery, AsksForTheApplicationWithItsIdAsItIs) {
    HttpTestServer const server(always({.body = R"({"code":200,"data":{"brivelServers":["s"]}})"}));
    EXPECT_EQ(discovered(server.url(), "a%20b&c=d"), "s");
    auto const request = server.requests().at(0);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/config/api/v1/pim-server?appId=a%20b&c=d");
    EXPECT_EQ(std::ranges::count(request.headers, "Content-Type: application/json"), 1);
}

TEST(Discovery, FindsNothingAtAnAddressOrForAnIdThatMakesNoUrl) {
    HttpTestServer const server(always({.body = R"({"code":200,"data":{"brivelServers":["s"]}})"}));
    for (std::string const tail : {"\nhttp://10.0.0.1", "\r\nX-Injected: 1", "\t", "\x7f"}) {
        EXPECT_EQ(discovered(server.url() + tail), std::nullopt);
    }
    for (std::string const& id : {std::string("a b"), std::string("a\nb"), std::string("a\0b", 3),
                                  std::string("x HTTP/1.1\r\nX-Injected: 1\r\n\r\nGET /")}) {
        EXPECT_EQ(discovered(server.url(), id), std::nullopt);
    }
    EXPECT_EQ(discovered("file:///etc/passwd?"), std::nullopt);
    EXPECT_EQ(discovered(""), std::nullopt);
    EXPECT_TRUE(server.requests().empty());
}

TEST(Discovery, GivesUpASilentServerAfterSixSeconds) {
    HttpTestServer const server(always({.ending = Ending::silence}));
    auto const start = Clock::now();
    EXPECT_EQ(discovered(server.url()), std::nullopt);
    auto const waited = Clock::now() - start;
    EXPECT_GE(waited, 5900ms);
    EXPECT_LT(waited, 10s);
}

TEST(Http, PassesFailuresOnAsSuch) {
    std::string const huge((1 << 20) + 1, 'x');
    std::string closedPort;
    {
        HttpTestServer const server(always({}));
        closedPort = server.url();
    }
    EXPECT_TRUE(answerTo(taskFor(closedPort)).failure);
    for (auto const& answer : std::vector<HttpTestAnswer>{
             {.body = "half of this", .ending = Ending::closesMidway},
             {.ending = Ending::closesAtOnce},
             {.body = huge},
             {.status = 302, .headers = {"Location: /again"}},  // for ever
             {.status = 302, .headers = {"Location: file:///etc/passwd"}},
             {.status = 302, .headers = {"Location: ftp://127.0.0.1/"}},
         }) {
        HttpTestServer const server(always(answer));
        auto const got = answerTo(taskFor(server.url()));
        EXPECT_TRUE(got.failure) << answer.status << answer.headers.size();
        EXPECT_EQ(got.failure->stage, KvFailureStage::discovery);
        EXPECT_EQ(got.body, "");
        EXPECT_LE(server.requests().size(), 17u);
    }
}

TEST(Http, FollowsRedirectsAndTakesABodyOfAMebibyte) {
    std::string const body(1 << 20, 'x');
    HttpTestServer const server([&](HttpTestRequest const& request) -> HttpTestAnswer {
        if (request.target == "/") return {.status = 301, .headers = {"Location: /elsewhere"}};
        return {.body = body};
    });
    auto const answer = answerTo(taskFor(server.url() + "/"));
    EXPECT_EQ(answer.status, 200);
    EXPECT_FALSE(answer.failure);
    EXPECT_EQ(answer.body, body);
}

TEST(Http, HoldsUpNobodyWhileANameIsNotResolved) {
    auto hanging = taskFor("http://hangs.example/");
    hanging.requestTimeout = 300ms;
    std::promise<KvHttpAnswer> hung;
    auto const start = Clock::now();
    startHttp(engineThreadQueue(), std::move(hanging), [&](KvHttpAnswer answer) { hung.set_value(std::move(answer)); });
    HttpTestServer const server(always({.body = "quick"}));
    EXPECT_EQ(answerTo(taskFor(server.url())).body, "quick");
    EXPECT_TRUE(hung.get_future().get().failure);
    EXPECT_EQ(answerTo(taskFor(server.url())).body, "quick");
    EXPECT_LT(Clock::now() - start, 10s);
    resolverMayGoOn = true;
}

TEST(Http, CountsTheTimeFromTheLastSignOfLife) {
    // A redirect is one: together the two waits are longer than the time-out, each is shorter.
    HttpTestServer const server([](HttpTestRequest const& request) -> HttpTestAnswer {
        std::this_thread::sleep_for(600ms);
        if (request.target == "/") return {.status = 302, .headers = {"Location: /then"}};
        return {.body = "in time"};
    });
    auto task = taskFor(server.url() + "/");
    task.requestTimeout = 1s;
    EXPECT_EQ(answerTo(task).body, "in time");
    task.resourceTimeout = 1s;
    EXPECT_TRUE(answerTo(task).failure);
}

TEST(Http, ServesManyAtOnce) {
    HttpTestServer const server(
        [](HttpTestRequest const& request) -> HttpTestAnswer { return {.body = request.target}; });
    auto const port = server.url().substr(server.url().rfind(':'));
    std::vector<std::promise<std::string>> bodies(200);
    for (auto& body : bodies) {  // by name, whose look-ups are bounded
        auto task = taskFor("http://slow.example" + port + "/" + std::to_string(&body - bodies.data()));
        task.requestTimeout = 10s;
        startHttp(engineThreadQueue(), std::move(task), [&](auto const& answer) { body.set_value(answer.body); });
    }
    for (std::size_t i = 0; i < bodies.size(); ++i)
        EXPECT_EQ(bodies[i].get_future().get(), std::string("/").append(std::to_string(i)));
}

TEST(Http, AsksNoEnvironmentForAProxy) {
    HttpTestServer const server(always({}));
    ::setenv("http_proxy", "http://127.0.0.1:1", 1);  // NOLINT(concurrency-mt-unsafe): nobody else looks at it
    EXPECT_EQ(answerTo(taskFor(server.url())).status, 200);
    ::unsetenv("http_proxy");  // NOLINT(concurrency-mt-unsafe)
}

TEST(Http, TrustsTheExtraAuthoritiesAndNobodyElse) {
    test::CertificateAuthority const authority, stranger("Another authority");
    for (auto const& c : test::tlsCases(authority, stranger)) {
        SCOPED_TRACE(c.what);
        test::ScriptedServer const server([](auto&) {}, c.server);  // answers the discovery
        auto const url = "https://" + (c.host + (":" + std::to_string(server.port())));
        auto task = taskFor(url + "/config/");
        task.network = net::withCaFile({}, authority.caFile());
        auto const failure = answerTo(task).failure;
        auto const error = failure ? failure->text : std::string();
        EXPECT_EQ(error.empty(), *c.error == 0) << error;
        EXPECT_TRUE(error.starts_with(c.error)) << error;
        EXPECT_EQ(discovered(url, "app", task.network).has_value(), *c.error == 0);
        // What one request trusts is not kept for the next.
        EXPECT_EQ(discovered(url, "app", net::withCaFile({}, "/nonexistent/ca.pem")), std::nullopt);
        EXPECT_EQ(discovered(url), std::nullopt);
    }
}

}  // namespace
}  // namespace kv
