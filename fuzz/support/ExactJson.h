// Which JSON reads as the same that it was written from. Fractions and very large numbers need not: the parser reads
// them to the nearest number but one.
#pragma once

#include <algorithm>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv::fuzz {

inline bool isExact(boost::json::value const& value) {
    if (auto const* items = value.if_array()) return std::ranges::all_of(*items, isExact);
    auto const* object = value.if_object();
    if (object) return std::ranges::all_of(*object, [](auto const& entry) { return isExact(entry.value()); });
    return !value.is_double();
}

}  // namespace kv::fuzz
