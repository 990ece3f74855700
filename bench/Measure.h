// What a run costs: clocks, processor time and memory of this process, and the line of JSON that tells of it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace bench {

inline double seconds(timeval time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

inline double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

inline rusage usage() {
    rusage used;
    getrusage(RUSAGE_SELF, &used);
    return used;
}

inline double userSeconds() { return seconds(usage().ru_utime); }
/// Of all threads of the process, in user code and in the kernel.
inline double cpuSeconds() {
    auto const used = usage();
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

/// A number from /proc/self/status: "VmRSS:" in KiB, "Threads:".
inline long statusOf(std::string const& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        long number = 0;
        if (word == name && status >> number) return number;
    }
    return 0;
}

inline double percentile(std::vector<double> values, double share) {
    if (values.empty()) return 0;
    std::ranges::sort(values);
    auto const at = static_cast<std::size_t>(share * static_cast<double>(values.size()));
    return values[std::min(values.size() - 1, at)];
}

/// Since the moment that the script which started this process put into START_NS; 0 without it.
inline double millisecondsSinceStart() {
    char const* const start = std::getenv("START_NS");  // NOLINT(concurrency-mt-unsafe): nobody sets variables
    if (start == nullptr) return 0;
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::nanoseconds(now).count() - std::atoll(start)) / 1e6;
}

/// Everything between its construction and `stop`.
class Measurement {
public:
    void stop() {
        wall_ = wallSeconds() - wallStart_;
        cpu_ = cpuSeconds() - cpuStart_;
        user_ = userSeconds() - userStart_;
    }
    double cpu() const { return cpu_; }
    double wall() const { return wall_; }

    /// A further column of the line.
    void add(char const* name, double value) {
        char text[96];
        std::snprintf(text, sizeof text, ",\"%s\":%.2f", name, value);
        more_ += text;
    }
    void addLatencies(std::vector<double> const& microseconds) {
        add("p50_us", percentile(microseconds, 0.5));
        add("p99_us", percentile(microseconds, 0.99));
    }
    void print(std::string const& workload, std::string const& client, long operations) const {
        auto const count = static_cast<double>(operations);
        std::printf(
            "{\"workload\":\"%s\",\"client\":\"%s\",\"ops\":%ld,\"wall_s\":%.4f,\"cpu_s\":%.4f,\"cpu_us_per_op\":%.3f,"
            "\"user_us_per_op\":%.3f,\"ops_per_s\":%.0f%s,\"peak_rss_kb\":%ld}\n",
            workload.c_str(), client.c_str(), operations, wall_, cpu_, cpu_ * 1e6 / count, user_ * 1e6 / count,
            count / wall_, more_.c_str(), usage().ru_maxrss);
        std::fflush(stdout);
    }

private:
    double wallStart_ = wallSeconds(), cpuStart_ = cpuSeconds(), userStart_ = userSeconds();
    double wall_ = 0, cpu_ = 0, user_ = 0;
    std::string more_;
};

}  // namespace bench
