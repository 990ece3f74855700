#include "Stage.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace demo {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kLongestWait = 8s;  // the library itself gives a request 6 seconds
constexpr auto kSlice = 5ms;

constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kCyan = "\x1b[36m";
constexpr std::string_view kGreen = "\x1b[32m";

}  // namespace

Stage::Stage()
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets variables
    : start_(Clock::now()), hasColours_(::isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr) {}

void Stage::scene(std::string_view title) const {
    std::puts("");
    line(kBold, "", "", title);
}

void Stage::action(std::string_view who, std::string_view what) const { line(kCyan, who, "", what); }

void Stage::event(std::string_view who, std::string_view what) const { line(kGreen, who, "    <- ", what); }

void Stage::remark(std::string_view text) const { line(kDim, "", "", text); }

void Stage::waitUntil(std::string_view who, std::string_view what, std::function<bool()> const& isSo) const {
    auto const deadline = Clock::now() + kLongestWait;
    while (!isSo()) {
        if (Clock::now() > deadline) throw Failure(std::string(who) + " waited in vain: " + std::string(what));
        queue->runFor(kSlice);
    }
}

void Stage::line(std::string_view colour, std::string_view who, std::string_view mark, std::string_view text) const {
    std::chrono::duration<double> const elapsed = Clock::now() - start_;
    std::string const shown = std::string(mark).append(text);
    auto const* const code = hasColours_ ? colour.data() : "";
    auto const* const end = hasColours_ ? "\x1b[0m" : "";
    std::printf("%6.2f s  %s%-6.*s %s%s\n", elapsed.count(), code, static_cast<int>(who.size()), who.data(),
                shown.c_str(), end);
    std::fflush(stdout);
}

}  // namespace demo
