// Reading values that a server sent, whatever they turn out to be, and turning values into JSON text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv {

/// Compact JSON text of an object or array; the empty string for any other value; nothing for one that JSON cannot
/// represent (a number that is not finite).
std::optional<std::string> jsonString(boost::json::value const& value);

// What a member of an object is, read as the type that is wanted. `object` may be null, and so may any result that is a
// pointer; nothing here throws.
boost::json::value const* valueOf(boost::json::object const* object, std::string_view key);
boost::json::object const* objectOf(boost::json::object const* object, std::string_view key);
boost::json::array const* arrayOf(boost::json::object const* object, std::string_view key);
std::optional<std::string> stringOf(boost::json::object const* object, std::string_view key);

boost::json::object const* asObject(boost::json::value const* value);
std::optional<std::string> asString(boost::json::value const* value);
/// Numbers truncated toward zero, booleans as 1 and 0, text by its leading digits, anything else 0. What lies beyond
/// the range is its nearest end.
std::int64_t asInteger(boost::json::value const* value);
std::int32_t asInteger32(boost::json::value const* value);
/// Whether it is another number than 0, with anything read as a number like `asInteger` does.
bool asTruth(boost::json::value const* value);
/// The first item of a list when there is one.
boost::json::value const* firstOf(boost::json::array const& items);

}  // namespace kv
