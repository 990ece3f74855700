#include "console/DoctorCommand.h"

#include "Classes/KvPimDoctor.h"
#include "Classes/KvPimKit.h"
#include "console/Output.h"

#include <array>
#include <cstdio>
#include <iomanip>
#include <locale>
#include <sstream>

#include <boost/json.hpp>
#include <unistd.h>

namespace kv::console {
namespace {

using Outcome = KvPimDoctor::Outcome;
using Step = KvPimDoctor::Step;
using Summary = KvPimDoctor::Summary;

constexpr int kNameWidth = 13;
constexpr std::chrono::microseconds kShown{100};  // what is shorter took no time

class JsonReport {
public:
    void tell(Step const& step) {
        boost::json::object details;
        for (auto const& [name, fact] : step.details) details[name] = fact;
        output_.line({{"step", step.name},
                      {"outcome", toString(step.outcome)},
                      {"found", step.found},
                      {"microseconds", step.took.count()},
                      {"advice", step.advice},
                      {"details", std::move(details)}});
    }

    void conclude(Summary const& summary) {
        output_.line({{"summary", summary.isWell() ? "well" : "failed"},
                      {"passed", summary.passed},
                      {"warned", summary.warned},
                      {"failed", summary.failed},
                      {"skipped", summary.skipped},
                      {"firstFailed", summary.firstFailed},
                      {"microseconds", summary.took.count()}});
    }

private:
    Output output_;
};

class TextReport {
public:
    explicit TextReport(bool isVerbose) : isVerbose_(isVerbose) {}

    void tell(Step const& step) {
        static constexpr std::array<Mark, 4> kMarks{
            {{"ok  ", "\x1b[32m"}, {"warn", "\x1b[33m"}, {"FAIL", "\x1b[1;31m"}, {"-   ", "\x1b[2m"}}};
        auto const& mark = kMarks.at(static_cast<std::size_t>(step.outcome));
        std::ostringstream line;
        line.imbue(std::locale::classic());
        line << coloured(mark.text, mark.colour) << "  " << std::left << std::setw(kNameWidth) << step.name << "  "
             << (step.outcome == Outcome::skipped ? coloured(step.found, mark.colour) : step.found);
        if (step.took >= kShown) line << "  " << coloured(milliseconds(step.took), "\x1b[2m");
        print(line.str());
        std::string const margin(6 + kNameWidth + 2, ' ');
        if (!step.advice.empty()) print(margin + coloured("-> " + step.advice, "\x1b[1m"));
        if (!isVerbose_) return;
        for (auto const& [name, fact] : step.details) print(margin + coloured(name + ": ", "\x1b[2m") + fact);
    }

    void conclude(Summary const& summary) {
        if (summary.isWell()) {
            auto const warnings = summary.warned == 0 ? "" : " But see the warnings above.";
            return print("\nAll that was tried works." + std::string(warnings));
        }
        print("\nIt fails at \"" + summary.firstFailed + "\"; see what to do there.");
    }

private:
    struct Mark {
        char const *text, *colour;
    };

    static std::string milliseconds(std::chrono::microseconds time) {
        std::ostringstream text;
        text.imbue(std::locale::classic());
        text << '(' << std::fixed << std::setprecision(1) << static_cast<double>(time.count()) / 1000 << " ms)";
        return text.str();
    }

    static bool wantsColours() {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets variables
        char const *const none = std::getenv("NO_COLOR"), *const terminal = std::getenv("TERM");
        bool const isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
        return ::isatty(STDOUT_FILENO) == 1 && !isDumb && (none == nullptr || *none == '\0');
    }

    std::string coloured(std::string const& text, char const* colour) const {
        return hasColours_ ? colour + text + "\x1b[0m" : text;
    }

    static void print(std::string const& line) {
        std::puts(line.c_str());
        std::fflush(stdout);
    }

    bool const isVerbose_;
    bool const hasColours_ = wantsColours();
};

template <class Report>
int examine(DoctorOptions const& options, Report report) {
    KvPimKit::setConsole({});  // what the library prints says less than the steps
    auto const queue = KvMainQueue::main();
    if (!queue) {
        std::fputs("kvpim: the system has no descriptor left\n", stderr);
        return 1;
    }
    KvPimDoctor::Subject subject{.appId = options.common.appId,
                                 .client = clientOptions(options.common, queue),
                                 .userId = options.userId,
                                 .token = options.token,
                                 .triesUpload = options.triesUpload,
                                 .timeout = options.timeout};
    int status = 1;
    KvPimDoctor const doctor(
        std::move(subject), [&](Step const& step) { report.tell(step); },
        [&](Summary const& summary) {
            report.conclude(summary);
            status = summary.isWell() ? 0 : 1;
            queue->stop();
        });
    queue->run();
    return status;
}

}  // namespace

int runDoctor(DoctorOptions const& options) {
    return options.isJson ? examine(options, JsonReport()) : examine(options, TextReport(options.isVerbose));
}

}  // namespace kv::console
