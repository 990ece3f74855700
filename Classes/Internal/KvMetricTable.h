// What each number of `KvPimMetrics` is called, and what it means: the one list of which the texts, the JSON, the sums
// and the page of the guide (docs/metrics.md) come.
#pragma once

#include "Classes/Model/KvPimMetrics.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

namespace kv {

struct KvMetric {
    /// `counter`, `durations`: grow, and are added up. `present`: what is now; added up. `latest`: the same, of which
    /// the longest counts. `record`: likewise, but kept when its client is gone.
    enum class Kind { counter, durations, present, latest, record };
    using Numbers = std::variant<std::span<std::uint64_t>, std::span<std::chrono::nanoseconds>, KvPimDurations*>;

    Kind kind;
    std::string_view name;  // without "kvpim_"
    std::string_view unit;  // empty, or how the name ends
    std::string_view help;
    Numbers (*of)(KvPimMetrics& metrics);
    std::string_view label{};                      // what tells its numbers from each other; empty for a single one
    std::span<std::string_view const> labelled{};  // its values; an empty one stands for a number that there is not

    /// As OpenMetrics has it.
    std::string_view type() const;
};

std::span<KvMetric const> metricTable();

/// Adds what others have done.
void add(KvPimMetrics& to, KvPimMetrics const& more);
/// Leaves what was done.
void forgetPresent(KvPimMetrics& metrics);

}  // namespace kv
