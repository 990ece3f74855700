// Fields of a record's lines, whatever their types turn out to be.
#pragma once

#include <cstdint>
#include <string_view>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv::test {

/// Empty when it is not there, or no text.
inline std::string_view textAt(boost::json::object const& object, std::string_view name) {
    auto const* const value = object.if_contains(name);
    auto const* const text = value != nullptr ? value->if_string() : nullptr;
    return text != nullptr ? std::string_view(*text) : std::string_view();
}

/// 0 when it is not there, or no number.
inline std::int64_t numberAt(boost::json::object const& object, std::string_view name) {
    auto const* const value = object.if_contains(name);
    boost::system::error_code error;
    auto const number = value != nullptr && value->is_number() ? value->to_number<std::int64_t>(error) : 0;
    return error ? 0 : number;
}

/// Empty when it is not there, or no object.
inline boost::json::object const& objectAt(boost::json::object const& object, std::string_view name) {
    static auto const* const none = new boost::json::object;
    auto const* const value = object.if_contains(name);
    auto const* const found = value != nullptr ? value->if_object() : nullptr;
    return found != nullptr ? *found : *none;
}

}  // namespace kv::test
