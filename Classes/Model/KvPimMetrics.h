// What a client, or all of a process, have done so far, and what waits at this moment. docs/metrics.md has the list.
#pragma once

#include "Classes/Model/KvPimCodes.h"
#include "Classes/Model/KvPimErrorCodes.h"
#include "Net/KvFailureStage.h"
#include "Platform/KvExport.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace boost::json {
class object;
}

namespace kv {

/// How a request ended.
enum class KvPimRequestOutcome {
    succeeded,     ///< The server answered with the result 0.
    refused,       ///< The server answered with another result.
    unanswered,    ///< No answer came in time.
    notConnected,  ///< There was no connection; nothing was sent.
    noRoom,        ///< Too much waited to be sent already; nothing was sent.
    notLoggedIn,   ///< Refused here, with 102; nothing was sent.
    invalid,       ///< Refused here, for its arguments; nothing was sent.
};

/// Why a message was never sent: a request, or an answer to the server.
enum class KvPimUnsent {
    notConnected,    ///< There was no connection.
    noRoom,          ///< `KvPimOptions::maxQueuedBytes` left no room for it.
    overdue,         ///< Its request's time was over before its turn came.
    connectionLost,  ///< The connection ended before its turn came.
};

/// Why a message that was received came to nothing.
enum class KvPimIgnored {
    unawaited,  ///< An event that nobody listens for.
    invalid,    ///< An event whose content is no JSON.
    late,       ///< An answer whose request had ended without it.
    unasked,    ///< An answer to nothing that was ever asked.
    left,       ///< This side had left the connection before the main queue came to it.
};

/// How a connection that was logged in came to its end.
enum class KvPimConnectionEnd {
    left,         ///< This side left: a logout, or a token that was renewed.
    kickedOff,    ///< The user logged in elsewhere.
    serverLeft,   ///< The server ended the session.
    pingTimeout,  ///< The server's pings stopped.
    broken,       ///< Anything else: closed, broken, or silent since the network changed.
};

/// One number for each value of an enumeration.
template <class Enumeration, class Number, std::size_t size>
struct KvPimBy {
    std::array<Number, size> numbers{};
    /// The number of this value.
    Number& operator[](Enumeration value) { return numbers[static_cast<std::size_t>(value)]; }
    /// The same.
    Number const& operator[](Enumeration value) const { return numbers[static_cast<std::size_t>(value)]; }
    bool operator==(KvPimBy const&) const = default;
};

/// How long something took, each time.
struct KvPimDurations {
    /// The upper ends of the buckets.
    static constexpr std::array<std::chrono::microseconds, 15> kBounds{
        std::chrono::microseconds(500), std::chrono::milliseconds(1),   std::chrono::milliseconds(2),
        std::chrono::milliseconds(5),   std::chrono::milliseconds(10),  std::chrono::milliseconds(20),
        std::chrono::milliseconds(50),  std::chrono::milliseconds(100), std::chrono::milliseconds(200),
        std::chrono::milliseconds(500), std::chrono::seconds(1),        std::chrono::seconds(2),
        std::chrono::seconds(5),        std::chrono::seconds(10),       std::chrono::seconds(30)};

    /// How often it took longer than the bound before and at most this one; the last: longer than all of them.
    std::array<std::uint64_t, kBounds.size() + 1> counts{};
    /// All of it together.
    std::chrono::nanoseconds total{};

    /// How often it was.
    std::uint64_t count() const {
        std::uint64_t all = 0;
        for (auto const each : counts) all += each;
        return all;
    }
    bool operator==(KvPimDurations const&) const = default;
};

/// What a client has done since it was made, over all its logins and connections; or all clients of a process,
/// those that are gone included. Everything only grows, unless it says otherwise. Times are those of the client's main
/// queue.
struct KvPimMetrics {
    /// What went over the wire one way, once it was a WebSocket.
    struct Traffic {
        /// Of frames as they are sent, without TLS, TCP and the requests before.
        std::uint64_t bytes = 0;
        /// Messages, attachments and what keeps the connection alive.
        std::uint64_t frames = 0;
        /// Requests, answers and events.
        std::uint64_t messages = 0;
        bool operator==(Traffic const&) const = default;
    };
    /// What waits at this moment.
    struct Waiting {
        std::uint64_t messages = 0;
        std::uint64_t bytes = 0;
        bool operator==(Waiting const&) const = default;
    };
    /// The server's pings. It pings and this side answers, so no round trip can be seen from here: see
    /// `roundTrips` for those. Of a process, the longest of its clients'.
    struct Heartbeat {
        /// How many were read.
        std::uint64_t pings = 0;
        /// How many answers were sent when they were due, while the pings waited unread behind what the main queue had
        /// not handled yet.
        std::uint64_t answeredUnread = 0;
        /// How often the server said it would ping, at the latest connection.
        std::chrono::nanoseconds announced{};
        /// From the ping before the latest one, or the beginning of the session, to the latest one: as they were read.
        /// What is longer than announced was spent on the way, in the server, or by a busy engine.
        std::chrono::nanoseconds interval{};
        /// The longest of these; it never gets shorter.
        std::chrono::nanoseconds longestInterval{};
        /// From when the engine began to read what held the latest ping, to when the system had taken the answer.
        std::chrono::nanoseconds answerTime{};
        bool operator==(Heartbeat const&) const = default;
    };

    /// Whose: as the client was made, and as `KvPimStateManager::userId`. Empty of a process.
    std::string appId, userId;

    /// What left this side.
    Traffic sent;
    /// What was read. A message that nobody asked for counts too.
    Traffic received;
    /// Messages that wait to be sent, texts and attachments without framing; not what the system has taken.
    Waiting toSend;
    /// Messages that wait for the main queue, and the memory they take. Always 0 when the engine is the main queue.
    Waiting toHandle;
    /// How often nothing more was read for a while because too much waited for the main queue.
    std::uint64_t readingPauses = 0;
    KvPimBy<KvPimUnsent, std::uint64_t, 4> unsent;
    KvPimBy<KvPimIgnored, std::uint64_t, 5> ignored;

    /// Requests that have ended: those of the application, and those by which a reconnection restores.
    KvPimBy<KvPimRequestOutcome, std::uint64_t, 7> requests;
    /// Requests that have not ended yet. Not only growing.
    std::uint64_t pendingRequests = 0;
    /// How long the oldest of these has been waiting for its answer; 0 without one, and of a process.
    std::chrono::nanoseconds oldestRequest{};
    /// Of the requests that were answered, from the call to when the main queue came to what was read along with the
    /// answer.
    KvPimDurations roundTrips;

    /// Logins that ended, by the code of their completion. One that goes on behind a 9 counts once more with its
    /// outcome.
    KvPimBy<KvPimLoginErrorCode, std::uint64_t, 10> logins;
    /// Of the logins that succeeded, from the call.
    KvPimDurations loginTimes;
    /// Connections that had been logged in and ended.
    KvPimBy<KvPimConnectionEnd, std::uint64_t, 5> connectionEnds;
    /// Attempts to come back that failed, by how far they came.
    KvPimBy<KvFailureStage, std::uint64_t, 10> failedReconnections;
    /// Of the reconnections that succeeded, from the loss of the connection.
    KvPimDurations reconnectionTimes;

    /// How many clients are in which state; 1 in all for a client. Not only growing.
    KvPimBy<KvPimConnectionState, std::uint64_t, 5> clients;
    /// How long they have been in which state, up to now. A client that has not logged in yet is disconnected.
    KvPimBy<KvPimConnectionState, std::chrono::nanoseconds, 5> stateTimes;

    Heartbeat heartbeat;

    bool operator==(KvPimMetrics const&) const = default;
};

/// What all clients of the process have done together, those that are gone included. Any thread.
KV_EXPORT KvPimMetrics processMetrics();

/// The metrics of these clients, and the process's, in the text form of OpenMetrics 1.0, which Prometheus reads:
///
///     response.body = kv::openMetricsText({client->metrics()});
///
/// Those of clients are called `kvpim_...` and have the labels `app` and `user`; clients that have both in common are
/// added up. Those of the process are called `kvpim_process_...`. Any thread.
KV_EXPORT std::string openMetricsText(std::vector<KvPimMetrics> const& clients,
                                      KvPimMetrics const& process = processMetrics());
/// The same in Prometheus's older text form, for readers that do not say that they accept OpenMetrics. Any thread.
KV_EXPORT std::string prometheusText(std::vector<KvPimMetrics> const& clients,
                                     KvPimMetrics const& process = processMetrics());
/// What an HTTP response says of the type of the first text.
inline constexpr char kOpenMetricsType[] = "application/openmetrics-text; version=1.0.0; charset=utf-8";
/// The same of the second one.
inline constexpr char kPrometheusType[] = "text/plain; version=0.0.4; charset=utf-8";

/// The same numbers as JSON, by the names that the text has, without "kvpim_". Durations are numbers of seconds.
/// <boost/json/object.hpp> is needed to use it. Any thread.
KV_EXPORT boost::json::object toJson(KvPimMetrics const& metrics);

}  // namespace kv
