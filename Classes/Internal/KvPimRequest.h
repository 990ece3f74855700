// The one way in which the client asks the server for something: a command with an acknowledgement and a time-out,
// whose outcome becomes the operation's own code. An operation is a row (KvOperation) and the few lines that make its
// payload and read its answer.
#pragma once

#include "Classes/Model/KvPimResult.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketData.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kv {

class SocketIOClient;

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

[[noreturn]] void endOfWrongThread(char const* call);
/// Everything of a client belongs to one thread. Ends a program that calls from another: debug builds always, others
/// where the client was made to.
inline void assertMainThread(KvMainQueue const& queue, [[maybe_unused]] bool isChecked, char const* call) {
#ifdef NDEBUG
    if (!isChecked) return;
#endif
    if (!queue.isOwnThread()) endOfWrongThread(call);
}

using KvAnswer = std::function<void(KvPimResult const& result)>;

/// Sends "command" with the command's name and a payload (the first of `payload.values`). `answered` is called exactly
/// once, on the main queue, never inside the call; without a socket that happens at the time-out, like without an
/// answer.
void emitCommand(KvMainQueue& queue, std::shared_ptr<SocketIOClient> const& socket, std::string_view command,
                 SocketItems payload, std::chrono::milliseconds timeout, KvAnswer answered);

/// A payload without binary data.
SocketItems payloadOf(boost::json::object dictionary);
/// Logs the operation's line, if it has one, with the payload.
void logRequest(KvOperation const& operation, SocketItems const& payload);

// A dictionary in a dictionary that the server sent; null for anything else. Bytes look like one, and are none.
boost::json::object const* dictionaryOf(SocketData const& data, boost::json::object const* object,
                                        std::string_view key);
boost::json::object const* dictionaryOf(KvPimResult const& result, std::string_view key);

/// Calls what the application gave, if it gave something.
template <class Completion, class... Arguments>
void complete(Completion const& done, Arguments const&... arguments) {
    if (done) done(arguments...);
}

/// The end of a request whose answer tells nothing but a code.
template <class Completion>
auto completing(Completion done) {
    return [done = std::move(done)](std::int64_t code, KvPimResult const*) { complete(done, code); };
}

}  // namespace kv
