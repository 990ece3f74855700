#include "Net/Url.h"
#include "SocketIO/transport/Upgrade.h"

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace kv::sio {
namespace {

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

TEST(Url, EncodesEveryByteOfAParameterThatIsNotPlain) {
    EXPECT_EQ(requestTarget({}), "/socket.io/?EIO=4&transport=websocket");
    EXPECT_EQ(
        requestTarget({{"app", "brivel"}, {"token", R"({"a":"b c"})"}, {"&=", "+%\r\n/?#\xC3\xA4-._~"}, {"empty", ""}}),
        "/socket.io/?EIO=4&transport=websocket&app=brivel&token=%7B%22a%22%3A%22b%20c%22%7D"
        "&%26%3D=%2B%25%0D%0A%2F%3F%23%C3%A4-._~&empty=");
}

}  // namespace
}  // namespace kv::sio
