// A list as an argument of an operation that is awaited: a std::vector, or up to eight items in braces. Braces make a
// std::vector through an array, which GCC 12 cannot keep in a coroutine ("array used as initializer"), nor can it
// destroy an aggregate there that the same expression makes. So an item is neither.
#pragma once

#include <concepts>
#include <optional>
#include <utility>
#include <vector>

namespace kv {

namespace detail {

template <class T>
class KvListItem {
public:
    KvListItem() = default;
    template <class U>
    requires std::convertible_to<U, T> KvListItem(U&& item)  // NOLINT: as an element of a std::vector
        : item_(std::forward<U>(item)) {}
    /// The two fields of an attribute.
    template <class Key, class Value>
    requires requires(Key&& key, Value&& value) { T{std::forward<Key>(key), std::forward<Value>(value)}; }
    KvListItem(Key&& key, Value&& value) : item_(T{std::forward<Key>(key), std::forward<Value>(value)}) {}

    std::optional<T> take() { return std::move(item_); }

private:
    std::optional<T> item_;
};

}  // namespace detail

/// See above.
template <class T>
class KvList {
    using Item = detail::KvListItem<T>;

public:
    KvList() = default;
    /// Of a list, which must stay until the call.
    template <std::same_as<std::vector<T>> List>
    KvList(List const& list) : list_(&list) {}  // NOLINT: it is used within the expression only
    /// Of items, as in braces.
    KvList(Item a, Item b = {}, Item c = {}, Item d = {}, Item e = {}, Item f = {}, Item g = {},
           Item h = {}) {  // NOLINT
        for (auto* each : {&a, &b, &c, &d, &e, &f, &g, &h}) {
            if (auto item = each->take()) own_.push_back(*std::move(item));
        }
    }
    KvList(KvList const&) = delete;
    KvList& operator=(KvList const&) = delete;

    /// For the call.
    operator std::vector<T> const&() const noexcept { return *list_; }  // NOLINT(google-explicit-constructor)

private:
    std::vector<T> own_;
    std::vector<T> const* list_ = &own_;
};

}  // namespace kv
