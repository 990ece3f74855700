#include "Binding/Neighbours.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace kv::binding {
namespace {

constexpr std::size_t kMostNames = 3;
constexpr std::size_t kLongestName = 64;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// How many letters have to be put in, left out or replaced to make one name of the other.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            std::size_t const replaced = diagonal + (lower(one[i]) == lower(other[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min<std::size_t>({replaced, row[j + 1] + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string didYouMean(std::string_view typed, std::span<std::string_view const> names) {
    if (typed.empty() || typed.size() > kLongestName) return {};
    std::vector<std::string_view> nearest;
    std::size_t least = std::max<std::size_t>(typed.size() / 3, 1) + 1;  // beyond it a name is another one
    for (auto const name : names) {
        auto const away = name.starts_with(typed) ? 1 : distance(typed, name);
        if (away > least || (away == least && nearest.empty())) continue;
        if (away < least) nearest.clear();
        least = away;
        nearest.push_back(name);
    }
    std::string text;
    for (auto const name : std::span(nearest).first(std::min(nearest.size(), kMostNames))) {
        text.append(text.empty() ? "; did you mean " : " or ").append(name);
    }
    return text.empty() ? text : text + "?";
}

}  // namespace kv::binding
