// What is fixed about an operation: its command, its codes, its log line, how its failures are reported, its time-out.
// An operation is such a row, and the few lines that make its payload and read its answer.
#pragma once

#include "Classes/Model/KvPimResult.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kv {

/// What a completion receives for each outcome of one operation. Where a text of the server's has no code, the
/// operation does not look at it, and the result decides.
struct KvCodes {
    struct Passed {
        std::int32_t result = 0;  // as the server answered; 0 for an unused row
        std::int64_t code = 0;
    };
    std::optional<std::int64_t> noAck;
    std::optional<std::int64_t> tooManyRequests;
    std::int64_t other;
    std::array<Passed, 4> passed{};
    /// The texts of a refusal are looked at before the result, so that one beats even a result of 0.
    bool refusalBeforeSuccess = false;

    std::int64_t of(KvPimResult const& result) const;
};

/// The same, written down: an operation's row can hold nothing but the codes that its own enumeration names.
template <class Code>
struct KvCodesOf {
    struct Passed {
        std::int32_t result;
        Code code;
    };
    std::optional<Code> noAck;
    std::optional<Code> tooManyRequests;
    Code other;
    std::array<Passed, 4> passed{};
    bool refusalBeforeSuccess = false;

    constexpr operator KvCodes() const {
        KvCodes codes{noAck, tooManyRequests, other, {}, refusalBeforeSuccess};
        std::ranges::transform(passed, codes.passed.begin(), [](Passed const& row) {
            return KvCodes::Passed{row.result, row.code};
        });
        return codes;
    }
};

/// How an operation's failures are reported as events. Successes never are.
struct KvReport {
    enum class About { nothing, user, channel };
    enum class Order { afterCompletion, beforeCompletion };
    About about = About::nothing;
    std::string_view action{};
    std::string_view interface {};
    Order order = Order::afterCompletion;
    bool needsClient = false;                // what is answered when the client is gone is not reported
    std::int64_t codeOfInvalidArgument = 0;  // in the report, where it differs from what the completion hears

    /// `channelId` matters to reports about channels only.
    void failure(std::int64_t code, bool isAnswer, std::string const& channelId) const;
};

/// An operation, as it is written down.
struct KvOperationRow {
    std::string_view command;
    KvCodes codes;
    std::int64_t invalidArgument = 0;
    /// Logged at info before the command leaves; "%@" stands for the payload. Empty for none.
    std::string_view logLine{};
    KvReport report{};
    std::chrono::seconds timeout{6};
};

struct KvOperation : KvOperationRow {
    consteval KvOperation(KvOperationRow const& row) : KvOperationRow(row) {
        bool const isSound =
            !command.empty() && codes.noAck != 0 && codes.tooManyRequests != 0 && codes.other != 0 &&
            std::ranges::all_of(codes.passed, [](auto const& each) { return (each.result == 0) == (each.code == 0); });
        if (!isSound) throw "a row without a command, or one that tells success for a failure";  // so does not compile
    }
};

}  // namespace kv
