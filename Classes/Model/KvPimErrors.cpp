#include "Classes/Model/KvPimErrors.h"

#include <algorithm>
#include <optional>
#include <string>

namespace kv {
namespace {

struct Belonging {
    std::string_view ending;  // of an enumerator's name
    std::optional<KvErrc> condition;
};
// Codes of one name mean one thing in all operations. The first row that fits counts; what has none is in no condition.
constexpr Belonging kBelongings[] = {
    {"LeaveChannelErrorFailure", std::nullopt},  // a refusal or a time-out: that operation does not tell
    {"ErrorTimeout", KvErrc::timedOut},
    {"waitedTooLong", KvErrc::timedOut},
    {"ErrorNotLogin", KvErrc::notLoggedIn},
    {"ErrorTooManyRequests", KvErrc::tooManyRequests},
    {"ErrorInvalidArgument", KvErrc::invalidArgument},
    {"ErrorTooLong", KvErrc::invalidArgument},
    {"ErrorTooManyChannels", KvErrc::invalidArgument},
    {"ErrorNotOwn", KvErrc::invalidArgument},
    {"ErrorFailure", KvErrc::refused},
    {"ErrorServer3", KvErrc::refused},
    {"ErrorServer4", KvErrc::refused},
    {"ErrorServer5", KvErrc::refused},
    {"ErrorServer6", KvErrc::refused},
    {"ErrorNotInChannel", KvErrc::refused},
    {"ErrorAppForbidden", KvErrc::refused},
    {"ErrorInvalidAppId", KvErrc::refused},
    {"ErrorInvalidToken", KvErrc::refused},
    {"ErrorTokenExpired", KvErrc::refused},
    {"ErrorNotAuthorized", KvErrc::refused},
    {"ErrorAlreadyLogin", KvErrc::refused},
    {"cancelled", KvErrc::cancelled},
};

std::optional<std::errc> standardOf(KvErrc condition) {
    switch (condition) {
        case KvErrc::timedOut:
            return std::errc::timed_out;
        case KvErrc::invalidArgument:
            return std::errc::invalid_argument;
        case KvErrc::cancelled:
            return std::errc::operation_canceled;
        default:
            return std::nullopt;
    }
}

/// The codes of one operation, of the waiting, or the conditions themselves.
class Category final : public std::error_category {
public:
    Category(char const* name, std::span<KvPimCodeTable::Row const> rows) : name_(name), table_(rows) {}

    char const* name() const noexcept override { return name_; }
    std::string message(int code) const override { return std::string(table_.sentenceOf(code)); }

    std::error_condition default_error_condition(int code) const noexcept override {
        auto const condition = conditionOf(code);
        return condition ? make_error_condition(*condition) : std::error_condition(code, *this);
    }

    bool equivalent(int code, std::error_condition const& condition) const noexcept override {
        if (default_error_condition(code) == condition) return true;
        auto const own = conditionOf(code);
        auto const standard = own ? standardOf(*own) : std::nullopt;
        return standard && condition == *standard;
    }

    // What is timed out to the standard library is so to `KvErrc` too.
    bool equivalent(std::error_code const& error, int condition) const noexcept override {
        if (error.category() == *this) return error.value() == condition;
        bool const isOfConditions = *this == KvPimTables::of(KvErrc{}).category();
        auto const standard = isOfConditions ? standardOf(KvErrc{condition}) : std::nullopt;
        return standard && error == *standard;
    }

private:
    std::optional<KvErrc> conditionOf(int code) const noexcept {
        auto const name = table_.nameOf(code);
        auto const* const row =
            std::ranges::find_if(kBelongings, [&](auto const& each) { return name.ends_with(each.ending); });
        return row == std::end(kBelongings) ? std::nullopt : row->condition;
    }

    char const* name_;
    KvPimCodeTable table_;
};

}  // namespace

std::string_view KvPimCodeTable::nameOf(std::int64_t code) const noexcept {
    auto const row = std::ranges::find(rows_, code, &Row::code);
    return row == rows_.end() ? "unknown" : row->name;
}

std::string_view KvPimCodeTable::sentenceOf(std::int64_t code) const noexcept {
    auto const row = std::ranges::find(rows_, code, &Row::code);
    return row == rows_.end() ? "This number is not known here; a newer version of the library may know it."
                              : row->sentence;
}

// Never destroyed: an error may be looked at while the program ends.
KvPimErrorTable const& KvPimErrorTable::make(char const* category, std::span<Row const> rows) noexcept {
    return *new KvPimErrorTable(rows, *new Category(category, rows));
}

}  // namespace kv
