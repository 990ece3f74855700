#include "Platform/KvDirectories.h"
#include "support/Test.h"

#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

namespace kv {
namespace {

// NOLINTBEGIN(concurrency-mt-unsafe) the tests of this file have one thread

void set(char const* name, char const* value) { value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name); }

TEST(Directories, AreAbsoluteWhateverTheEnvironmentSays) {
    std::string const home = ::getpwuid(::getuid())->pw_dir;
    struct Case {
        char const *xdg, *home;
        std::string caches, data;
    };
    std::vector<Case> const cases{
        {"/xdg", "/home/anna", "/xdg", "/xdg"},
        {"/xdg//", "/home/anna", "/xdg", "/xdg"},
        {"/", "/home/anna", "/", "/"},
        {"relative", "/home/anna/", "/home/anna/.cache", "/home/anna/.local/share"},
        {"", "/home/anna", "/home/anna/.cache", "/home/anna/.local/share"},
        {nullptr, "relative", home + "/.cache", home + "/.local/share"},
        {nullptr, nullptr, home + "/.cache", home + "/.local/share"},
    };
    for (auto const& c : cases) {
        set("XDG_CACHE_HOME", c.xdg);
        set("XDG_DATA_HOME", c.xdg);
        set("HOME", c.home);
        EXPECT_EQ(cachesDirectory(), c.caches);
        EXPECT_EQ(cachesDirectoryOf(executableName()), c.caches + "/kvpim/platform_test");
        EXPECT_EQ(cachesDirectoryOf("../a b"), c.caches + "/kvpim/%2E.%2Fa%20b");
        EXPECT_EQ(dataDirectory(), c.data);
    }
}

// NOLINTEND(concurrency-mt-unsafe)

}  // namespace
}  // namespace kv
