#include "Platform/KvDirectories.h"

#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

namespace kv {
namespace {

// NOLINTBEGIN(concurrency-mt-unsafe) the tests of this file have one thread

// Variables of the environment, for the time of a test.
class Environment {
public:
    void set(std::string const& name, std::optional<std::string> const& value) {
        char const* const now = std::getenv(name.c_str());
        before_.try_emplace(name, now != nullptr ? std::optional<std::string>(now) : std::nullopt);
        put(name, value);
    }
    ~Environment() {
        for (auto const& [name, value] : before_) put(name, value);
    }

private:
    static void put(std::string const& name, std::optional<std::string> const& value) {
        if (value) {
            ::setenv(name.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name.c_str());
        }
    }
    std::map<std::string, std::optional<std::string>> before_;
};

TEST(Directories, AreAbsoluteWhateverTheEnvironmentSays) {
    std::string const home = ::getpwuid(::getuid())->pw_dir;
    struct Case {
        std::optional<std::string> xdg, home;
        std::string caches, data;
    };
    std::vector<Case> const cases{
        {"/xdg", "/home/anna", "/xdg", "/xdg"},
        {"/xdg//", "/home/anna", "/xdg", "/xdg"},
        {"/", "/home/anna", "/", "/"},
        {"relative", "/home/anna/", "/home/anna/.cache", "/home/anna/.local/share"},
        {"", "/home/anna", "/home/anna/.cache", "/home/anna/.local/share"},
        {std::nullopt, "relative", home + "/.cache", home + "/.local/share"},
        {std::nullopt, std::nullopt, home + "/.cache", home + "/.local/share"},
    };
    Environment environment;
    for (auto const& c : cases) {
        environment.set("XDG_CACHE_HOME", c.xdg);
        environment.set("XDG_DATA_HOME", c.xdg);
        environment.set("HOME", c.home);
        EXPECT_EQ(cachesDirectory(), c.caches);
        EXPECT_EQ(cachesDirectoryOf(executableName()), c.caches + "/kvpim/platform_test");
        EXPECT_EQ(cachesDirectoryOf("../a b"), c.caches + "/kvpim/%2E.%2Fa%20b");
        EXPECT_EQ(dataDirectory(), c.data);
    }
}

// NOLINTEND(concurrency-mt-unsafe)

}  // namespace
}  // namespace kv
