#pragma once

#include <cstdint>

namespace kv {

/// The wall clock in milliseconds since 1970, truncated.
std::int64_t currentTimeStamp();

}  // namespace kv
