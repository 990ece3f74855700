// What the arguments of a log line look like: text as it is, numbers, JSON values and lists as compact JSON, records by
// their `description()`, binary data as its size.
#pragma once

#include "Platform/KvExport.h"
#include "Platform/KvJsonText.h"
#include "SocketIO/SocketData.h"

#include <concepts>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <boost/json/value.hpp>

namespace kv {

/// What travels in a packet, written with "<N bytes>" in the place of each attachment. For the time of one log call.
class KV_EXPORT KvLogPayload {
public:
    /// All items of a packet.
    explicit KvLogPayload(SocketData const& data) : data_(data) {}
    /// One value of a packet.
    KvLogPayload(boost::json::value const& value, SocketData const& data) : value_(&value), data_(data) {}
    KvLogPayload(boost::json::value const& value, std::vector<KvData> const& attachments)
        : value_(&value), data_(noItems(), attachments) {}
    /// The first item of a packet; null when there is none.
    static KvLogPayload firstOf(SocketData const& data);

    std::string description() const;

private:
    static boost::json::array const& noItems();
    boost::json::value const* value_ = nullptr;  // null for all items
    SocketData data_;
};

template <class T>
std::string logText(T const& value) {
    if constexpr (std::convertible_to<T const&, std::string_view>) {
        return std::string(std::string_view(value));
    } else if constexpr (std::same_as<T, bool>) {
        return value ? "1" : "0";
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else if constexpr (requires { value.description(); }) {
        return value.description();
    } else if constexpr (std::same_as<T, boost::json::value> || std::same_as<T, boost::json::object> ||
                         std::same_as<T, boost::json::array>) {
        return jsonText(value);
    } else {
        static_assert(std::ranges::range<T>, "no text for this type");
        std::string text = "[";
        for (auto const& element : value) {
            if (text.size() > 1) text += ',';
            if constexpr (std::convertible_to<decltype(element), std::string_view>) {
                text += jsonText(boost::json::string_view(element));
            } else {
                text += logText(element);
            }
        }
        return text + "]";
    }
}

}  // namespace kv
