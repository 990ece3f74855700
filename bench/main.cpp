// Measures this library against a server that ./run bench starts.
//     kvpim-bench PORT WORKLOAD OPS WARMUP [--engine main|thread] [--socketio] [--tls PEM]
//     kvpim-bench PORT crowd CLIENTS 0 [--engine main|thread]
//     kvpim-bench PORT growth|await 0 0 [--engine main|thread]
#include "bench/Workloads.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <sys/resource.h>

namespace bench {

void fail(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::fputs("kvpim-bench: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
    std::_Exit(1);
}

}  // namespace bench

namespace {

constexpr char kUsage[] =
    "usage: kvpim-bench PORT WORKLOAD OPS WARMUP [--engine main|thread] [--socketio] "
    "[--tls PEM]";

void allowManyFiles() {
    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount < 5) bench::fail("%s", kUsage);
    bench::Subject subject;
    subject.port = arguments[1];
    bench::Amount const amount{std::atol(arguments[3]), std::atol(arguments[4])};
    for (int i = 5; i < argumentCount; ++i) {
        std::string_view const option = arguments[i];
        if (option == "--socketio") {
            subject.isSocketOnly = true;
        } else if (option == "--engine" && i + 1 < argumentCount) {
            subject.isOnThread = std::string_view(arguments[++i]) == "thread";
        } else if (option == "--tls" && i + 1 < argumentCount) {
            subject.caFile = arguments[++i];
        } else {
            bench::fail("%s", kUsage);
        }
    }
    std::string_view const workload = arguments[2];
    allowManyFiles();
    if (workload == "crowd") return bench::runCrowd(subject, amount.operations), 0;
    if (workload == "growth") return bench::runGrowth(subject), 0;
    if (workload == "await") return bench::runAwaiting(subject), 0;
    if (!bench::runWorkload(arguments[2], subject, amount)) bench::fail("there is no workload %s", arguments[2]);
}
