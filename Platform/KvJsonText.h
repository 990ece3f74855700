// JSON as text: what strangers wrote is read within bounds, and what is written is what every reader takes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/string_view.hpp>
#include <boost/json/value.hpp>

namespace kv {

inline constexpr std::size_t kMostJsonDepth = 64;
/// Keys of one object; of a few objects of this size, or many small ones. Names can be made so that they all fall into
/// one place of a table, and then each costs as much as all before it.
inline constexpr std::size_t kMostJsonKeys = 10'000;
/// Values of one text, which need many times the memory of their characters.
inline constexpr std::size_t kMostJsonValues = 1u << 20;

/// Reads JSON text. Half a surrogate pair, as an emoji that was cut in two leaves it in an escape, becomes U+FFFD.
/// Returns an empty text, or what is wrong with it. Any thread.
std::string readJson(std::string_view text, boost::json::storage_ptr storage, boost::json::value& out,
                     std::size_t mostDepth = kMostJsonDepth);

/// Appends a value as JSON text. Numbers are written as JavaScript writes them: 1.5, and null for what is none. Any
/// thread.
void appendJson(std::string& out, boost::json::value const& value);
void appendJson(std::string& out, boost::json::object const& object);
void appendJson(std::string& out, boost::json::array const& array);
/// Appends a text in quotes.
void appendJson(std::string& out, boost::json::string_view text);

template <class Json>
std::string jsonText(Json const& json) {
    std::string text;
    appendJson(text, json);
    return text;
}

}  // namespace kv
