// What became of an operation: its value, or why there is none. In the manner of std::expected.
#pragma once

#include "Platform/KvExport.h"

#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <variant>
#include <version>

#ifdef __cpp_lib_expected
#include <expected>
#endif

namespace kv {

struct KvFailure;

/// Why an operation failed: a code of the operation's own category (`Model/KvPimErrors.h`), and what is known beyond
/// it.
class KV_EXPORT KvError {
public:
    /// Of a code, and of what is known beyond it.
    KvError(std::error_code code, std::shared_ptr<KvFailure const> failure = nullptr)  // NOLINT: a code is an error
        : code_(code), failure_(std::move(failure)) {}

    /// Of the operation's category, or of `KvWaitError`'s.
    std::error_code code() const noexcept { return code_; }
    /// The same.
    operator std::error_code() const noexcept { return code_; }  // NOLINT(google-explicit-constructor)
    /// Where it failed and what was said there (`Model/KvFailure.h`); null where the code says all.
    KvFailure const* failure() const noexcept { return failure_.get(); }
    /// What the code means, and the cause where it is known. Fit to be shown: there is neither token nor password in
    /// it.
    std::string message() const;

    /// With a code, such as `KvPimLoginErrorInvalidToken`, or with a condition, such as `KvErrc::timedOut`.
    template <class Other>
    requires(!std::is_same_v<Other, KvError>) bool operator==(Other const& other) const { return code_ == other; }

private:
    std::error_code code_;
    std::shared_ptr<KvFailure const> failure_;
};

/// A value, or the error in its place. `KvResult<>` is one without a value.
template <class T = void>
class KvResult {
    using Stored = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

public:
    using value_type = T;
    using error_type = KvError;

    KvResult() requires std::is_void_v<T> {}
    /// A success.
    KvResult(Stored value) : content_(std::in_place_index<0>, std::move(value)) {}  // NOLINT: a value is a result
    /// A failure.
    KvResult(KvError error) : content_(std::in_place_index<1>, std::move(error)) {}  // NOLINT: and so is an error
    /// A failure of which no more is known.
    KvResult(std::error_code code) : KvResult(KvError(code)) {}  // NOLINT

    /// Whether it is a success.
    bool has_value() const noexcept { return content_.index() == 0; }
    /// The same.
    explicit operator bool() const noexcept { return has_value(); }

    /// The value, which must be there.
    template <class U = Stored>
    requires(!std::is_void_v<T>) U const& operator*() const& noexcept { return *std::get_if<0>(&content_); }
    /// The value, which must be there.
    template <class U = Stored>
    requires(!std::is_void_v<T>) U& operator*() & noexcept { return *std::get_if<0>(&content_); }
    /// The value, which must be there.
    template <class U = Stored>
    requires(!std::is_void_v<T>) U && operator*() && noexcept { return std::move(*std::get_if<0>(&content_)); }
    /// The value, which must be there.
    template <class U = Stored>
    requires(!std::is_void_v<T>) U const* operator->() const noexcept { return std::get_if<0>(&content_); }
    /// The value, which must be there.
    template <class U = Stored>
    requires(!std::is_void_v<T>) U* operator->() noexcept { return std::get_if<0>(&content_); }
    /// The error, which must be there.
    KvError const& error() const noexcept { return *std::get_if<1>(&content_); }

    /// The value; throws a std::system_error with the code and the message when there is none.
    T value() const& {
        check();
        if constexpr (!std::is_void_v<T>) return **this;
    }
    /// The same.
    T value() && {
        check();
        if constexpr (!std::is_void_v<T>) return *std::move(*this);
    }
    /// The value, or what is given.
    template <class Other>
    requires(!std::is_void_v<T>) T value_or(Other&& other)
    const { return has_value() ? **this : static_cast<T>(std::forward<Other>(other)); }

#ifdef __cpp_lib_expected
    operator std::expected<T, KvError>() const {  // NOLINT(google-explicit-constructor)
        if (!has_value()) return std::unexpected(error());
        if constexpr (std::is_void_v<T>) {
            return {};
        } else {
            return **this;
        }
    }
#endif

private:
    void check() const {
        if (!has_value()) throw std::system_error(error().code(), error().message());
    }
    std::variant<Stored, KvError> content_;
};

}  // namespace kv
