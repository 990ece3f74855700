#include "Classes/Internal/KvMetricTable.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace kv {
namespace {

using Kind = KvMetric::Kind;
using Numbers = KvMetric::Numbers;
using Metrics = KvPimMetrics;

// Each in the order of its enumeration.
constexpr std::string_view kOutcomes[] = {"succeeded", "refused",     "unanswered", "notConnected",
                                          "noRoom",    "notLoggedIn", "invalid"};
constexpr std::string_view kUnsent[] = {"notConnected", "noRoom", "overdue", "connectionLost"};
constexpr std::string_view kIgnored[] = {"unawaited", "invalid", "late", "unasked", "left"};
constexpr std::string_view kLogins[] = {"succeeded",    "unknown",      "appForbidden", "invalidArgument",
                                        "invalidAppId", "invalidToken", "tokenExpired", "notAuthorized",
                                        "alreadyLogin", "timeout"};
constexpr std::string_view kEnds[] = {"left", "kickedOff", "serverLeft", "pingTimeout", "broken"};
constexpr std::string_view kStages[] = {"address",   "name",    "tcp",     "proxy", "tls",
                                        "discovery", "upgrade", "session", "login", "request"};
constexpr std::string_view kStates[] = {"", "disconnected", "connecting", "connected", "reconnecting"};

// Where a number is: of which member, and of which one within.
template <auto Member>
Numbers at(Metrics& metrics) {
    auto& found = metrics.*Member;
    using Found = std::remove_reference_t<decltype(found)>;
    if constexpr (std::is_same_v<Found, KvPimDurations>) {
        return &found;
    } else if constexpr (std::is_same_v<Found, std::uint64_t> || std::is_same_v<Found, std::chrono::nanoseconds>) {
        return std::span(&found, 1);
    } else {
        return std::span(found.numbers);
    }
}
template <auto Member, auto Within>
Numbers at(Metrics& metrics) {
    return std::span(&(metrics.*Member.*Within), 1);
}

constexpr KvMetric kMetrics[] = {
    {Kind::counter, "sent_bytes", "bytes", "Sent as WebSocket frames; TLS, TCP and the requests before do not count.",
     at<&Metrics::sent, &Metrics::Traffic::bytes>},
    {Kind::counter, "sent_frames", "", "WebSocket frames sent: messages, attachments, signs of life.",
     at<&Metrics::sent, &Metrics::Traffic::frames>},
    {Kind::counter, "sent_messages", "", "Requests and answers sent.", at<&Metrics::sent, &Metrics::Traffic::messages>},
    {Kind::counter, "received_bytes", "bytes",
     "Read as WebSocket frames; TLS, TCP and the answers before do not count.",
     at<&Metrics::received, &Metrics::Traffic::bytes>},
    {Kind::counter, "received_frames", "", "WebSocket frames read: messages, attachments, signs of life.",
     at<&Metrics::received, &Metrics::Traffic::frames>},
    {Kind::counter, "received_messages", "", "Events and answers read.",
     at<&Metrics::received, &Metrics::Traffic::messages>},
    {Kind::present, "queued_messages", "", "Messages that wait to be sent.",
     at<&Metrics::toSend, &Metrics::Waiting::messages>},
    {Kind::present, "queued_bytes", "bytes", "Their texts and attachments, without framing.",
     at<&Metrics::toSend, &Metrics::Waiting::bytes>},
    {Kind::present, "unhandled_messages", "", "Messages that were read and wait for the main queue.",
     at<&Metrics::toHandle, &Metrics::Waiting::messages>},
    {Kind::present, "unhandled_bytes", "bytes", "The memory that they take.",
     at<&Metrics::toHandle, &Metrics::Waiting::bytes>},
    {Kind::counter, "reading_pauses", "", "Times that reading stopped because too much waited for the main queue.",
     at<&Metrics::readingPauses>},
    {Kind::counter, "unsent_messages", "", "Messages that were never sent, by the reason.", at<&Metrics::unsent>,
     "reason", kUnsent},
    {Kind::counter, "ignored_messages", "", "Messages that were received and came to nothing, by the reason.",
     at<&Metrics::ignored>, "reason", kIgnored},

    {Kind::counter, "requests", "", "Requests that have ended, by their outcome.", at<&Metrics::requests>, "outcome",
     kOutcomes},
    {Kind::present, "pending_requests", "", "Requests that have not ended yet.", at<&Metrics::pendingRequests>},
    {Kind::latest, "oldest_request_seconds", "seconds", "How long the oldest of them has waited for its answer.",
     at<&Metrics::oldestRequest>},
    {Kind::durations, "request_duration_seconds", "seconds", "Round trips of the requests that were answered.",
     at<&Metrics::roundTrips>},

    {Kind::counter, "logins", "", "Logins that have ended, by the code of their completion.", at<&Metrics::logins>,
     "outcome", kLogins},
    {Kind::durations, "login_duration_seconds", "seconds", "Logins that succeeded, from the call.",
     at<&Metrics::loginTimes>},
    {Kind::counter, "connection_ends", "", "Connections that were logged in and ended, by how.",
     at<&Metrics::connectionEnds>, "reason", kEnds},
    {Kind::counter, "failed_reconnections", "", "Attempts to come back that failed, by how far they came.",
     at<&Metrics::failedReconnections>, "stage", kStages},
    {Kind::durations, "reconnection_duration_seconds", "seconds",
     "Reconnections that succeeded, from the loss of the connection.", at<&Metrics::reconnectionTimes>},

    {Kind::present, "clients", "", "Clients, by the state of their connection.", at<&Metrics::clients>, "state",
     kStates},
    {Kind::counter, "state_seconds", "seconds", "Time spent in each state of the connection.", at<&Metrics::stateTimes>,
     "state", kStates},

    {Kind::counter, "pings", "", "Pings of the server that were read.",
     at<&Metrics::heartbeat, &Metrics::Heartbeat::pings>},
    {Kind::counter, "pings_answered_unread", "",
     "Pings that were answered when they were due, while they waited unread.",
     at<&Metrics::heartbeat, &Metrics::Heartbeat::answeredUnread>},
    {Kind::latest, "announced_ping_interval_seconds", "seconds", "How often the server said it would ping.",
     at<&Metrics::heartbeat, &Metrics::Heartbeat::announced>},
    {Kind::latest, "ping_interval_seconds", "seconds", "Time between the two latest pings, as they were read.",
     at<&Metrics::heartbeat, &Metrics::Heartbeat::interval>},
    {Kind::record, "longest_ping_interval_seconds", "seconds", "The longest time between two pings so far.",
     at<&Metrics::heartbeat, &Metrics::Heartbeat::longestInterval>},
    {Kind::latest, "ping_answer_seconds", "seconds",
     "From when the engine began to read the latest ping to when its answer was sent.",
     at<&Metrics::heartbeat, &Metrics::Heartbeat::answerTime>},
};

// Which of two numbers, or lists of them, there is of both together.
template <class Number>
void combine(Kind kind, std::span<Number> to, std::span<Number> more) {
    bool const isSum = kind == Kind::counter || kind == Kind::present;
    std::ranges::transform(to, more, to.begin(), [&](Number a, Number b) { return isSum ? a + b : std::max(a, b); });
}
void combine(Kind, KvPimDurations* to, KvPimDurations* more) {
    combine<std::uint64_t>(Kind::counter, to->counts, more->counts);
    to->total += more->total;
}

}  // namespace

std::string_view KvMetric::type() const {
    return kind == Kind::counter ? "counter" : kind == Kind::durations ? "histogram" : "gauge";
}

std::span<KvMetric const> metricTable() { return kMetrics; }

void add(KvPimMetrics& to, KvPimMetrics const& more) {
    auto added = more;  // whose numbers the table gives to be changed
    for (auto const& metric : kMetrics) {
        std::visit(
            [&, source = metric.of(added)](auto const& target) {
                combine(metric.kind, target, std::get<std::remove_cvref_t<decltype(target)>>(source));
            },
            metric.of(to));
    }
}

void forgetPresent(KvPimMetrics& metrics) {
    for (auto const& metric : kMetrics) {
        if (metric.kind != Kind::present && metric.kind != Kind::latest) continue;
        std::visit(
            [](auto const& numbers) {
                if constexpr (!std::is_pointer_v<std::remove_cvref_t<decltype(numbers)>>)
                    std::ranges::fill(numbers, typename std::remove_cvref_t<decltype(numbers)>::value_type{});
            },
            metric.of(metrics));
    }
}

}  // namespace kv
