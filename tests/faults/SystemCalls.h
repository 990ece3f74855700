// Stands between this program, its libraries included, and some system calls, so that a test decides what they do.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>

#include <sys/resource.h>

namespace kv::test {

/// While one lives, each `send` and `recv` takes so many bytes at most.
class ShortReadsAndWrites {
public:
    explicit ShortReadsAndWrites(std::size_t most);
    ~ShortReadsAndWrites();
};

/// While one lives, this process gets no new descriptor.
class NoDescriptors {
public:
    NoDescriptors();
    ~NoDescriptors();

private:
    rlimit before_{};
};

/// While one lives, the wall clock is off by this much. Other clocks are as they were.
class WallClockStep {
public:
    explicit WallClockStep(std::chrono::seconds step);
    ~WallClockStep();
};

/// The machine sleeps for so long, and wakes up.
void sleepAndWakeUp(std::chrono::seconds time);

/// While one lives, the names that end in ".test" have the address that is set, and none without one.
class Names {
public:
    Names();
    ~Names();
    /// IPv4 or IPv6, in numbers, with commas between several; empty for none.
    void set(std::string const& addresses);
};

}  // namespace kv::test
