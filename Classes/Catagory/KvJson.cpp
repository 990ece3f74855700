#include "Classes/Catagory/KvJson.h"

#include "Platform/KvJsonText.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace kv {
namespace json = boost::json;
namespace {

bool isRepresentable(json::value const& value) {
    if (auto const* number = value.if_double()) return std::isfinite(*number);
    if (auto const* array = value.if_array()) return std::all_of(array->begin(), array->end(), isRepresentable);
    if (auto const* object = value.if_object()) {
        return std::all_of(object->begin(), object->end(),
                           [](auto const& entry) { return isRepresentable(entry.value()); });
    }
    return true;
}

std::int64_t truncated(double number) {
    constexpr double kEnd = 9223372036854775808.0;  // 2 to the 63rd; every double below it fits
    if (std::isnan(number)) return 0;
    if (number >= kEnd) return std::numeric_limits<std::int64_t>::max();
    if (number <= -kEnd) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(number);
}

}  // namespace

std::optional<std::string> jsonString(json::value const& value) {
    if (!value.is_structured()) return "";
    if (!isRepresentable(value)) return std::nullopt;
    return jsonText(value);
}

json::value const* valueOf(json::object const* object, std::string_view key) {
    return object == nullptr ? nullptr : object->if_contains(key);
}

json::object const* objectOf(json::object const* object, std::string_view key) {
    return asObject(valueOf(object, key));
}

json::array const* arrayOf(json::object const* object, std::string_view key) {
    auto const* value = valueOf(object, key);
    return value == nullptr ? nullptr : value->if_array();
}

std::optional<std::string> stringOf(json::object const* object, std::string_view key) {
    return asString(valueOf(object, key));
}

json::object const* asObject(json::value const* value) { return value == nullptr ? nullptr : value->if_object(); }

std::optional<std::string> asString(json::value const* value) {
    auto const* text = value == nullptr ? nullptr : value->if_string();
    return text == nullptr ? std::nullopt : std::optional<std::string>(std::in_place, text->data(), text->size());
}

std::int64_t asInteger(json::value const* value) {
    if (value == nullptr) return 0;
    switch (value->kind()) {
        case json::kind::int64:
            return value->get_int64();
        case json::kind::uint64:
            return static_cast<std::int64_t>(
                std::min<std::uint64_t>(value->get_uint64(), std::numeric_limits<std::int64_t>::max()));
        case json::kind::double_:
            return truncated(value->get_double());
        case json::kind::bool_:
            return value->get_bool() ? 1 : 0;
        case json::kind::string:
            return std::strtoll(value->get_string().c_str(), nullptr, 10);
        default:
            return 0;
    }
}

std::int32_t asInteger32(json::value const* value) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(asInteger(value), Limits::min(), Limits::max()));
}

bool asTruth(json::value const* value) {
    auto const* fraction = value == nullptr ? nullptr : value->if_double();
    return fraction != nullptr ? *fraction != 0 : asInteger(value) != 0;
}

json::value const* firstOf(json::array const& items) { return items.empty() ? nullptr : &items.front(); }

}  // namespace kv
