#include "console/Programs.h"

#include "support/TemporaryDirectory.h"

#include <optional>

namespace kv::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Sanitizers and busy machines are slow; a healthy run waits for none of it.
constexpr auto kLongestWait = 30s;

/// Whether the text is like the pattern, in which "*" stands for any text.
bool isLike(std::string_view text, std::string_view pattern) {
    auto const star = pattern.find('*');
    if (!text.starts_with(pattern.substr(0, star))) return false;
    if (star == std::string_view::npos) return text.size() == pattern.size();
    text.remove_prefix(star);
    pattern.remove_prefix(star + 1);
    while (true) {
        auto const next = pattern.find('*');
        if (next == std::string_view::npos) return text.ends_with(pattern);
        auto const found = text.find(pattern.substr(0, next));
        if (found == std::string_view::npos) return false;
        text.remove_prefix(found + next);
        pattern.remove_prefix(next + 1);
    }
}

std::vector<std::string> joined(std::vector<std::string> first, std::vector<std::string> const& more) {
    first.insert(first.end(), more.begin(), more.end());
    return first;
}

/// The test must leave nothing in the user's own directories.
std::string privateDirectory(std::string const& name) {
    static TemporaryDirectory const directory;
    return directory.path(name);
}

std::vector<std::string> privateDirectories() {
    return {"--caches-dir", privateDirectory("caches"), "--key-store-dir", privateDirectory("keys")};
}

}  // namespace

Program::Program(std::vector<std::string> const& command) : process_(command) {}

void Program::send(std::string_view line) { write(std::string(line) + '\n'); }

void Program::write(std::string_view bytes) { EXPECT_TRUE(process_.write(bytes)); }

testing::AssertionResult Program::prints(std::string_view pattern) {
    auto const deadline = Clock::now() + kLongestWait;
    for (std::size_t i = 0;; ++i) {
        if (i == lines_.size()) {
            auto line = process_.readLine(deadline);
            if (!line) break;
            lines_.push_back(*std::move(line));
        }
        if (!isLike(lines_[i], pattern)) continue;
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(i));
        return testing::AssertionSuccess();
    }
    auto failure = testing::AssertionFailure() << "nothing like " << pattern << " among";
    for (auto const& other : lines_) failure << "\n  " << other.substr(0, 1000);
    return failure;
}

int Program::exitStatus() {
    auto const deadline = Clock::now() + kLongestWait;
    while (auto line = process_.readLine(deadline)) lines_.push_back(*std::move(line));
    return process_.wait(deadline).value_or(-1);
}

std::vector<std::string> consoleCommand(std::string const& apiServer, std::vector<std::string> const& options) {
    auto command =
        joined({KVPIM_CLIENT, "console", "--app-id", "demo", "--api-server", apiServer}, privateDirectories());
    return joined(std::move(command), options);
}

std::vector<std::string> chatCommand(std::string const& apiServer, std::string const& user,
                                     std::vector<std::string> const& options) {
    auto command = joined({KVPIM_CLIENT, "chat", user, "--api-server", apiServer}, privateDirectories());
    return joined(std::move(command), options);
}

std::vector<std::string> exampleCommand(std::string const& program, std::vector<std::string> const& arguments) {
    return joined({"env", "XDG_CACHE_HOME=" + privateDirectory("caches"), "XDG_DATA_HOME=" + privateDirectory("data"),
                   "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent", program},
                  arguments);
}

std::string loginLine(std::string_view user) {
    return R"({"op":"loginByToken","id":"login","token":"0123456789abcdef0123456789abcdef","timeStamp":1,"userId":")" +
           std::string(user) + "\"}";
}

}  // namespace kv::test
