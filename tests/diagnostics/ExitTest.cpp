// What is still done at the end of a process.
#include "Shell.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

namespace kv {
namespace {

TEST(SerialQueueAtExit, TheEndOfTheProcessWaitsForItsWorkButNotForEver) {
    TemporaryDirectory const directory;
    auto const probe = std::string(DIAGNOSTICS_PROBE " exit ");
    auto const brief = runShell(probe + directory.path("short") + " 0.3");
    EXPECT_EQ(brief.exitCode, 0);
    EXPECT_TRUE(std::filesystem::exists(directory.path("short")));
    EXPECT_EQ(runShell(DIAGNOSTICS_PROBE " exit " + directory.path("later") + " 0.1 3600").exitCode, 0);
    EXPECT_TRUE(std::filesystem::exists(directory.path("later"))) << "what may wait is not lost";
    auto const endless = runShell(probe + directory.path("endless") + " 60");
    EXPECT_EQ(endless.exitCode, 0);
    EXPECT_LT(endless.elapsed, 20s);
    EXPECT_EQ(runShell(DIAGNOSTICS_PROBE " fork 60").exitCode, 0) << "a fork waited for threads that it does not have";
}

}  // namespace
}  // namespace kv
