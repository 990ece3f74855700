#include "Classes/Network/KvServerAddress.h"
#include "support/Test.h"

namespace kv {
namespace {

// The fuzzer of the discovery judges those of plain ASCII by a second implementation (fuzz/corpus/discovery/address-*).
TEST(ServerAddress, IsNamedInAscii) {
    EXPECT_TRUE(isValidServerIP("https://192.168.0.1:8443"));
    EXPECT_FALSE(isValidServerDomain("https://b\u00FCcher.example"));
    EXPECT_TRUE(isValidServerDomain("\xff\nhttps://api.example.com"));
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
