#include "Classes/Network/KvServerAddress.h"

#include <chrono>
#include <string>

#include <gtest/gtest.h>

namespace kv {
namespace {

TEST(ServerAddress, IsASchemeAHostAndPerhapsAPort) {
    struct Case {
        std::string address;
        bool isIp;
        bool isDomain;
    };
    for (auto const& c : std::vector<Case>{
             {"", false, false},
             {"https://192.168.0.1:8443", true, false},
             {"http://255.255.255.255", true, false},
             {"https://256.1.1.1", false, false},
             {"https://1.1.1.256:1", false, false},
             {"https://1.2.3", false, false},
             {"https://api.example.com", false, true},
             {"https://api.example.com:8443", false, true},
             {"HTTPS://API.EXAMPLE.COM", false, true},
             {"https://a-b_c.example.com", false, true},
             {"https://-a.example.com", false, false},
             {"https://localhost", false, false},
             {"https://api.example.c0m", false, false},
             {"https://api.example.com:", false, false},
             {"https://api.example.com/", false, false},
             {"https://api.example.com/v1", false, false},
             {"https://192.168.0.1/", false, false},
             {"https://user@api.example.com", false, false},
             {"ftp://api.example.com", false, false},
             {"ws://192.168.0.1", false, false},
             {"api.example.com", false, false},
             {" https://api.example.com", false, false},
             {"anything\nhttps://api.example.com\nat all", false, true},
             {"http://10.0.0.1\r\nX-Injected: 1", true, false},
             {"nothing\nof this", false, false},
             {"https://b\xc3\xbc"
              "cher.example",
              false, false},
             {"\xff\nhttps://api.example.com", false, true},
         }) {
        EXPECT_EQ(isValidServerIP(c.address), c.isIp) << c.address;
        EXPECT_EQ(isValidServerDomain(c.address), c.isDomain) << c.address;
        EXPECT_EQ(isValidApiServer(c.address), c.isIp || c.isDomain) << c.address;
    }
}

// A backtracking matcher takes longer than the universe for these.
TEST(ServerAddress, IsJudgedInLinearTime) {
    std::string const letters(1 << 20, 'a');
    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(isValidApiServer("https://" + letters));
    EXPECT_FALSE(isValidApiServer("https://" + letters + "!"));
    EXPECT_FALSE(isValidApiServer("https://" + letters + ".a.a.a.a.a.a.a.a.a.a.a1"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace kv
