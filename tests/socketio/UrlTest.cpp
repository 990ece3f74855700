// How a server is reached: its address, the options of the network, the target of the request.
#include "Net/NetworkOptions.h"
#include "Net/Url.h"
#include "SocketIO/transport/Upgrade.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace kv::sio {
namespace {

using namespace std::chrono_literals;

TEST(Url, IsTakenApart) {
    struct Case {
        char const* text;
        bool isSecure;
        char const* host;
        std::uint16_t port;
        char const* authority;
    };
    for (auto const& c : std::vector<Case>{
             {"http://host", false, "host", 80, "host"},
             {"ws://host:80/", false, "host", 80, "host"},
             {"HTTPS://host", true, "host", 443, "host"},
             {"wss://host:80", true, "host", 80, "host:80"},
             {"http://host:65535/path?query#fragment", false, "host", 65535, "host:65535"},
             {"https://127.0.0.1:8443?x=http://other", true, "127.0.0.1", 8443, "127.0.0.1:8443"},
             {"http://[::1]:9", false, "::1", 9, "[::1]:9"},
             {"https://[2001:db8::1]", true, "2001:db8::1", 443, "[2001:db8::1]"},
         }) {
        auto const url = net::Url::parse(c.text);
        ASSERT_TRUE(url) << c.text;
        EXPECT_EQ(url->isSecure, c.isSecure) << c.text;
        EXPECT_EQ(url->host, c.host) << c.text;
        EXPECT_EQ(url->port, c.port) << c.text;
        EXPECT_EQ(url->authority(), c.authority) << c.text;
    }
}

TEST(Url, IsRefused) {
    std::istringstream refused(
        "host host:80 ://host ftp://host http:/host http:// http:///path http://:80 http://host: http://host:0 "
        "http://host:65536 http://host:-1 http://host:8o http://host:80:80 http://[::1 http://[] http://[::1]x "
        "http://[::1]80 http://user@host http://h\xC3\xB6st");
    std::vector<std::string> texts{"", "http://ho st", "http://ho\r\nst", "http://host\r\nX: y:80"};
    texts.insert(texts.end(), std::istream_iterator<std::string>(refused), {});
    for (auto const& text : texts) {
        EXPECT_FALSE(net::Url::parse(text)) << text;
    }
}

TEST(NetworkOptions, WhatCannotBeIsTold) {
    using Options = KvPimNetworkOptions;
    struct Case {
        std::function<void(Options&)> change;
        char const* problem;  // a part of it; empty for none
    };
    auto const header = [](std::string const& name, std::string const& value) {
        return [=](Options& options) { options.headers.emplace_back(name, value); };
    };
    auto const path = [](char const* text) { return [=](Options& options) { options.socketPath = text; }; };
    std::vector<Case> const cases{
        {[](Options&) {}, ""},
        {header("X-Gate", "a value,\twith \xC3\xA4"), ""},
        {header("X-Gate", "a\r\nHost: other"), "value of the header X-Gate"},
        {header("X-Gate", std::string(1, '\0')), "value of the header X-Gate"},
        {header("X-Gate", std::string(8192, 'x')), "8192 bytes"},
        {header("", "x"), "name of a header"},
        {header("X Gate", "x"), "name of a header"},
        {header("X:", "x"), "name of a header"},
        {header("hOst", "x"), "header hOst"},
        {header("Sec-WebSocket-Protocol", "x"), "header Sec-WebSocket-Protocol"},
        {header("Proxy-Authorization", "x"), "header Proxy-Authorization"},
        {[](Options& options) { options.userAgent = "a\n"; }, "userAgent"},
        {path("/a%20b/"), ""},
        {path(""), "socketPath"},
        {path("socket.io/"), "socketPath"},
        {path("/a b/"), "socketPath"},
        {path("/a?b"), "socketPath"},
        {path("/a\r\nb"), "socketPath"},
        {[](Options& options) { options.connectTimeout = 0ms; }, "connectTimeout"},
        {[](Options& options) { options.connectTimeout = 24h; }, ""},
        {[](Options& options) { options.discoveryTimeout = std::chrono::milliseconds::max(); }, "discoveryTimeout"},
        {[](Options& options) { options.requestTimeout = -1ms; }, "requestTimeout"},
        {[](Options& options) { options.maxMessageBytes = 1023; }, "maxMessageBytes"},
        {[](Options& options) { options.maxMessageBytes = (1u << 30) + 1; }, "maxMessageBytes"},
        {[](Options& options) { options.maxUnhandledBytes = 0; }, "maxUnhandledBytes"},
    };
    for (auto const& c : cases) {
        Options options;
        c.change(options);
        auto const problem = problemOf(options);
        EXPECT_EQ(problem.empty(), *c.problem == '\0') << problem;
        EXPECT_NE(problem.find(c.problem), std::string::npos) << problem << ", not " << c.problem;
        EXPECT_TRUE(std::ranges::none_of(problem, [](char each) { return each < ' '; })) << problem;
    }
    EXPECT_EQ(net::shared({}), nullptr);
    Options watching;
    watching.watchesNetwork = true;
    EXPECT_NE(net::shared(watching), nullptr);
}

TEST(Url, EncodesEveryByteOfAParameterThatIsNotPlain) {
    EXPECT_EQ(requestTarget("/gate/socket.io", {}), "/gate/socket.io?EIO=4&transport=websocket");
    EXPECT_EQ(
        requestTarget("/socket.io/",
                      {{"app", "brivel"}, {"token", R"({"a":"b c"})"}, {"&=", "+%\r\n/?#\xC3\xA4-._~"}, {"empty", ""}}),
        "/socket.io/?EIO=4&transport=websocket&app=brivel&token=%7B%22a%22%3A%22b%20c%22%7D"
        "&%26%3D=%2B%25%0D%0A%2F%3F%23%C3%A4-._~&empty=");
}

}  // namespace
}  // namespace kv::sio
