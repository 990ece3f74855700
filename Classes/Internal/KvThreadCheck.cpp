#include "Classes/Internal/KvThreadCheck.h"

#include "Platform/KvConsole.h"

#include <chrono>
#include <cstdlib>
#include <string>

namespace kv {
namespace {

constexpr std::chrono::seconds kLongestFarewell{1};

}  // namespace

void endOfWrongThread(char const* call) {
    printLine(KvConsoleStream::error, "kvpim: \"" + std::string(call) +
                                          "\" was called from a thread that is none of its client's: call it " +
                                          "from the thread that drives its main queue, or post to that queue");
    drainConsole(kLongestFarewell);
    std::abort();
}

}  // namespace kv
