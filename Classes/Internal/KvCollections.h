// Going through dictionaries and lists, and making lists of what is in them. A callback of `kv_map` that may make
// nothing returns an optional: the list then has an empty one in that place, and always as many as the source.
#pragma once

#include <concepts>
#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace kv {

/// Calls `callback(key, value, stop)` for each entry in the dictionary's order, until `stop` is set. Part of the
/// interface; the library does not call it.
template <class Dictionary, class Callback>
void kv_each(Dictionary const& dictionary, Callback callback) {
    bool stop = false;
    for (auto const& [key, value] : dictionary) {
        callback(key, value, stop);
        if (stop) return;
    }
}

/// What `callback(key, value)` makes of each entry of a dictionary, in its order.
template <class Dictionary, class Callback>
auto kv_map(Dictionary const& dictionary, Callback callback) {
    using Entry = typename Dictionary::value_type;
    std::vector<
        std::invoke_result_t<Callback&, std::tuple_element_t<0, Entry> const&, std::tuple_element_t<1, Entry> const&>>
        list;
    list.reserve(dictionary.size());
    for (auto const& [key, value] : dictionary) list.push_back(callback(key, value));
    return list;
}

/// What `callback(element, index, stop)` makes of each element of a list, until `stop` is set.
template <class List, class Callback>
requires std::invocable<Callback&, typename List::value_type const&, std::size_t, bool&>
auto kv_map(List const& source, Callback callback) {
    std::vector<std::invoke_result_t<Callback&, typename List::value_type const&, std::size_t, bool&>> list;
    list.reserve(source.size());
    bool stop = false;
    for (auto const& element : source) {
        if (stop) break;
        list.push_back(callback(element, list.size(), stop));
    }
    return list;
}

}  // namespace kv
