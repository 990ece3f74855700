// The helpers for texts that re2 and OpenSSL do the work of.
#include "Classes/Catagory/KvString.h"

#include <string>

#include <gtest/gtest.h>

namespace kv::test {
namespace {

TEST(PatternTest, PatternsCoverTheWholeText) {
    EXPECT_TRUE(match(std::string(32, 'x'), R"(\S{32,32})"));
    EXPECT_FALSE(match(std::string(33, 'x'), R"(\S{32,32})"));
    EXPECT_FALSE(match("x", "("));
    EXPECT_EQ(md5Value(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5Value("abc"), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace kv::test
