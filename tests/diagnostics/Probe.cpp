// Does in a process of its own what the tests ask for in the first argument, and prints what came of it.
#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileManager.h"
#include "Platform/KvConsole.h"
#include "Platform/KvKeyStore.h"
#include "Platform/KvSerialQueue.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int statusNumber(kv::KvKeyStoreStatus status) { return static_cast<int>(status); }

// secrets LIMIT [STEP...]: opens the secret service, which may take so many milliseconds for each answer. A step is an
// operation, or a shell command between two operations. What took the whole limit is called late.
int secrets(int count, char** arguments) {
    std::chrono::milliseconds const limit(std::atoi(arguments[0]));
    auto start = std::chrono::steady_clock::now();
    auto const lateness = [&] { return std::chrono::steady_clock::now() - start >= limit ? " late" : ""; };
    auto const store = kv::openSecretServiceKeyStore(limit);
    std::printf("%s%s\n", store ? "open" : "none", lateness());
    kv::KvKeyStoreQuery const query{"service", "account"};
    for (int i = 1; store && i < count; ++i) {
        std::string const step = arguments[i];
        start = std::chrono::steady_clock::now();
        if (step == "read") {
            auto const match = store->copyMatching(query);
            std::printf("read %d %s", statusNumber(match.status), match.value.c_str());
        } else if (step == "remove") {
            std::printf("remove %d", statusNumber(store->remove(query)));
        } else if (step.starts_with("add=")) {
            std::printf("add %d", statusNumber(store->add(query, step.substr(4))));
        } else if (std::system(step.c_str()) != 0) {  // NOLINT(concurrency-mt-unsafe) no other thread does it
            std::printf("failed: %s", step.c_str());
        } else {
            continue;
        }
        std::printf("%s\n", lateness());
    }
    return 0;
}

void limitFiles(rlim_t bytes) {
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes == 0 ? limit.rlim_max : bytes;
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

// full-disk DIRECTORY: ten records where there is room for four and a half, then one where there is room again.
int fullDisk(char** arguments) {
    kv::WnLoganFileManager files(arguments[0], true);
    limitFiles(45);
    for (int i = 0; i < 10; ++i) files.writeLog("record" + std::to_string(100 + i));
    files.drain();
    limitFiles(0);
    files.writeLog("afterwards");
    files.drain();
    return 0;
}

// exit FILE SECONDS [DELAY]: ends with work in a queue that takes so long and then makes the file, and that may wait.
int exitWithWork(char** arguments) {
    kv::KvSerialQueue queue("probe");
    std::chrono::seconds const delay(arguments[2] != nullptr ? std::atoi(arguments[2]) : 0);
    queue.asyncWithin(delay, [path = std::string(arguments[0]), seconds = std::atof(arguments[1])] {
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        if (FILE* const file = std::fopen(path.c_str(), "w")) std::fclose(file);
    });
    return 0;
}

// fork SECONDS: ends while a fork of it, made with work under way that takes so long, has ended before.
int forkWithWork(char** arguments) {
    kv::KvSerialQueue queue("probe");
    std::promise<void> begun;
    queue.async([&begun, seconds = std::atof(arguments[0])] {
        begun.set_value();
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    });
    // A sanitizer locks its memory while a thread begins, and a fork of that moment would wait for the lock for ever.
    begun.get_future().wait();
    auto const start = std::chrono::steady_clock::now();
    pid_t const child = ::fork();
    if (child == 0) std::exit(0);  // NOLINT(concurrency-mt-unsafe): the one thread of its process
    ::waitpid(child, nullptr, 0);
    auto const waited = std::chrono::steady_clock::now() - start;
    std::_Exit(waited < std::chrono::milliseconds(2500) ? 0 : 1);  // a sanitizer takes a second of its own
}

// console gone|full|shared COUNT: prints lines to a pipe whose reader is gone, or that nobody reads before all are
// printed, or that somebody has made one that is not waited for. Tells whether all lines came out, or were said to be
// lost.
int console(char** arguments) {
    std::array<int, 2> ends{};
    bool const isGone = std::string_view(arguments[0]) == "gone";
    if (::pipe(ends.data()) != 0) return 1;
    ::dup2(ends[1], STDOUT_FILENO);
    ::close(ends[1]);
    if (isGone) ::close(ends[0]);
    if (std::string_view(arguments[0]) == "shared") ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
    long const count = std::atol(arguments[1]);
    for (long i = 0; i < count; ++i) kv::printLine(kv::KvConsoleStream::out, "line " + std::to_string(i));
    if (isGone) return kv::drainConsole(std::chrono::seconds(10)) ? 0 : 1;
    long next = 0, lost = 0;
    auto* const lines = ::fdopen(ends[0], "r");
    std::array<char, 100> line{};
    for (long number = 0; next + lost < count && std::fgets(line.data(), line.size(), lines) != nullptr;) {
        if (std::sscanf(line.data(), "line %ld", &number) == 1 && number == next) ++next;
        std::sscanf(line.data(), "kvpim: lines lost here, since nobody read them: %ld", &lost);
    }
    kv::printLine(kv::KvConsoleStream::error, next + lost == count ? "all accounted for" : "some are missing");
    kv::printLine(kv::KvConsoleStream::error, lost > 0 ? "lost some" : "lost none");
    return 0;  // what was printed last appears all the same
}

}  // namespace

int main(int count, char** arguments) {
    std::string const task = count > 1 ? arguments[1] : "";
    if (task == "secrets" && count > 2) return secrets(count - 2, arguments + 2);
    if (task == "full-disk" && count == 3) return fullDisk(arguments + 2);
    if (task == "console" && count == 4) return console(arguments + 2);
    if (task == "exit" && (count == 4 || count == 5)) return exitWithWork(arguments + 2);
    if (task == "fork" && count == 3) return forkWithWork(arguments + 2);
    return 2;
}
