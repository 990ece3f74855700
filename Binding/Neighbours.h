// What somebody may have meant who typed a name that does not exist.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace kv::binding {

/// "; did you mean A or B?" with those names that are nearest to `typed`, or nothing when none is near.
std::string didYouMean(std::string_view typed, std::span<std::string_view const> names);

}  // namespace kv::binding
