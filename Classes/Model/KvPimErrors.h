// The codes of completions as errors: `std::error_code`, a sentence for each, and conditions that hold across
// operations. Included by nobody else: take it where a code is to be named, explained or handed on. Any thread, all of
// it.
//
//     client->loginByToken(token, now, "alice", [](std::int64_t code) {
//         if (code != 0) std::cerr << kv::describe(kv::KvPimLoginErrorCode(code)) << '\n';
//     });
//     std::error_code const error = kv::KvPimJoinChannelErrorCode(code);
//     if (error == kv::KvErrc::timedOut) ...
#pragma once

#include "Classes/Model/KvPimCodes.h"
#include "Classes/Model/KvPimErrorCodes.h"
#include "Classes/Model/KvPimInvitation.h"
#include "Classes/Model/KvPimMessage.h"
#include "Platform/KvExport.h"

#include <concepts>
#include <cstdint>
#include <span>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace kv {

/// What a failure of any operation comes down to. A code belongs to one condition at most: `code == KvErrc::timedOut`.
/// To none belong KvPimLoginErrorUnknown, KvPimLeaveChannelErrorFailure, which may be a refusal or a time-out, and
/// KvWaitError::abandoned. What is `timedOut`, `invalidArgument` or `cancelled` equals std::errc::timed_out,
/// std::errc::invalid_argument or std::errc::operation_canceled too, and errors of others that do are these as well.
/// The category is "kv.pim".
enum class KvErrc {
    /// No answer came in time; what was asked for may have happened all the same.
    timedOut = 1,
    /// Nobody is logged in, so that nothing was sent.
    notLoggedIn = 2,
    /// The server's limit of requests is reached.
    tooManyRequests = 3,
    /// The call itself is wrong: repeated as it is, it fails again.
    invalidArgument = 4,
    /// The call is right, but the server, or the client in its stead, does not do it as things stand.
    refused = 5,
    /// The caller did not wait for the answer.
    cancelled = 6,
};

/// How the waiting for an operation can end without its answer. The category is "kv.pim.wait".
enum class KvWaitError {
    /// The caller's own limit of waiting is over. The request is on its way nevertheless, and may yet be carried out.
    waitedTooLong = 1,
    /// The caller has stopped waiting. The request is on its way nevertheless, and may yet be carried out.
    cancelled = 2,
    /// Who was to answer is gone: the client was destroyed. What was asked for may have happened or not.
    abandoned = 3,
};

/// The names and sentences of one enumeration.
class KV_EXPORT KvPimCodeTable {
public:
    /// One enumerator.
    struct Row {
        std::int64_t code;
        std::string_view name, sentence;
    };
    /// Of rows that stay.
    explicit constexpr KvPimCodeTable(std::span<Row const> rows) noexcept : rows_(rows) {}
    /// What `toString` says.
    std::string_view nameOf(std::int64_t code) const noexcept;
    /// What `describe` says.
    std::string_view sentenceOf(std::int64_t code) const noexcept;

    /// All of them, in the order of their codes.
    std::span<Row const> rows() const noexcept { return rows_; }

private:
    std::span<Row const> rows_;
};

/// The same for errors, which have a category.
class KV_EXPORT KvPimErrorTable final : public KvPimCodeTable {
public:
    /// Of the codes as `std::error_code`.
    std::error_category const& category() const noexcept { return *category_; }

private:
    friend struct KvPimTables;
    KvPimErrorTable(std::span<Row const> rows, std::error_category const& category) noexcept
        : KvPimCodeTable(rows), category_(&category) {}
    static KvPimErrorTable const& make(char const* category, std::span<Row const> rows) noexcept;
    std::error_category const* category_;
};

/// Which table is whose. States and reasons, which delegates are told of, are no errors.
struct KV_EXPORT KvPimTables {
    /// Of KvPimLoginErrorCode.
    static KvPimErrorTable const& of(KvPimLoginErrorCode) noexcept;
    /// Of KvPimLogoutErrorCode.
    static KvPimErrorTable const& of(KvPimLogoutErrorCode) noexcept;
    /// Of KvPimRenewTokenErrorCode.
    static KvPimErrorTable const& of(KvPimRenewTokenErrorCode) noexcept;
    /// Of KvPimJoinChannelErrorCode.
    static KvPimErrorTable const& of(KvPimJoinChannelErrorCode) noexcept;
    /// Of KvPimLeaveChannelErrorCode.
    static KvPimErrorTable const& of(KvPimLeaveChannelErrorCode) noexcept;
    /// Of KvPimChannelMembersErrorCode.
    static KvPimErrorTable const& of(KvPimChannelMembersErrorCode) noexcept;
    /// Of KvPimChannelMessageErrorCode.
    static KvPimErrorTable const& of(KvPimChannelMessageErrorCode) noexcept;
    /// Of KvPimChannelAttributesErrorCode.
    static KvPimErrorTable const& of(KvPimChannelAttributesErrorCode) noexcept;
    /// Of KvPimMemberCountErrorCode.
    static KvPimErrorTable const& of(KvPimMemberCountErrorCode) noexcept;
    /// Of KvPimLocalUserAttributesErrorCode.
    static KvPimErrorTable const& of(KvPimLocalUserAttributesErrorCode) noexcept;
    /// Of KvPimUserAttributesErrorCode.
    static KvPimErrorTable const& of(KvPimUserAttributesErrorCode) noexcept;
    /// Of KvPimPeersErrorCode.
    static KvPimErrorTable const& of(KvPimPeersErrorCode) noexcept;
    /// Of KvPimPeerMessageErrorCode.
    static KvPimErrorTable const& of(KvPimPeerMessageErrorCode) noexcept;
    /// Of KvPimInvitationErrorCode.
    static KvPimErrorTable const& of(KvPimInvitationErrorCode) noexcept;
    /// Of KvWaitError.
    static KvPimErrorTable const& of(KvWaitError) noexcept;
    /// Of KvErrc.
    static KvPimErrorTable const& of(KvErrc) noexcept;
    /// Of KvPimInvitationFailedErrorCode.
    static KvPimCodeTable const& of(KvPimInvitationFailedErrorCode) noexcept;
    /// Of KvPimConnectionState.
    static KvPimCodeTable const& of(KvPimConnectionState) noexcept;
    /// Of KvPimConnectionChangeReason.
    static KvPimCodeTable const& of(KvPimConnectionChangeReason) noexcept;
    /// Of KvPimMemberLeftReason.
    static KvPimCodeTable const& of(KvPimMemberLeftReason) noexcept;
    /// Of KvPimInvitationState.
    static KvPimCodeTable const& of(KvPimInvitationState) noexcept;
    /// Of KvPimMessageType.
    static KvPimCodeTable const& of(KvPimMessageType) noexcept;
};

/// An enumeration of the library whose numbers have names and sentences. A bare number has none: say whose it is, as in
/// `KvPimLoginErrorCode(code)`.
template <class Code>
concept KvPimCode = std::is_enum_v<Code> && requires(Code code) {
    KvPimTables::of(code);
};

/// One of those that a completion, or the waiting for one, ends with: an `std::error_code` of a category of its own,
/// such as "kv.pim.login" or "kv.pim.wait".
template <class Code>
concept KvPimErrorCode = KvPimCode<Code> && !std::same_as<Code, KvErrc> && requires(Code code) {
    { KvPimTables::of(code) } -> std::same_as<KvPimErrorTable const&>;
};

/// What happened and what to do about it, in a sentence or two. A number that is not known gets a sentence that says
/// so.
template <KvPimCode Code>
std::string_view describe(Code code) noexcept {
    return KvPimTables::of(code).sentenceOf(static_cast<std::int64_t>(code));
}

/// The enumerator's own name, such as "KvPimLoginErrorTimeout"; "unknown" for a number that is not known.
template <KvPimCode Code>
std::string_view toString(Code code) noexcept {
    return KvPimTables::of(code).nameOf(static_cast<std::int64_t>(code));
}

/// False when the code is 0, whose message is "Success.". The message is what `describe` says.
template <KvPimErrorCode Code>
std::error_code make_error_code(Code code) noexcept {
    return {static_cast<int>(code), KvPimTables::of(code).category()};
}

/// What an `std::error_code` compares with.
inline std::error_condition make_error_condition(KvErrc condition) noexcept {
    return {static_cast<int>(condition), KvPimTables::of(condition).category()};
}

}  // namespace kv

/// @cond
template <kv::KvPimErrorCode Code>
struct std::is_error_code_enum<Code> : std::true_type {};
template <>
struct std::is_error_condition_enum<kv::KvErrc> : std::true_type {};
/// @endcond
