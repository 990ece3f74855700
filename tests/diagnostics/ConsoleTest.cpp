// Standard output and standard error, whatever is the matter with those who read them.
#include "Shell.h"
#include "support/Test.h"

namespace kv {
namespace {

TEST(StandardStreams, HarmNobodyWhenTheyAreNotRead) {
    struct Case {
        char const* task;
        char const* error;
    };
    for (auto const& c : {Case{"gone 1000", ""}, Case{"full 10000", "all accounted for\nlost none\n"},
                          Case{"shared 10000", "all accounted for\nlost none\n"},
                          Case{"full 1000000", "all accounted for\nlost some\n"}}) {
        auto const result = runShell(std::string(DIAGNOSTICS_PROBE " console ") + c.task + " 2>&1");
        EXPECT_EQ(result.exitCode, 0) << c.task;
        EXPECT_EQ(result.output, c.error) << c.task;
    }
}

}  // namespace
}  // namespace kv
