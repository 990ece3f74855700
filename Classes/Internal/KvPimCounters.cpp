#include "Classes/Internal/KvPimCounters.h"

#include "Classes/Internal/KvMetricTable.h"
#include "Classes/Model/KvPimResult.h"
#include "SocketIO/SocketData.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace kv {
namespace {

// All clients of the process.
struct Process {
    std::mutex mutex;
    // Guarded by mutex.
    std::set<KvPimCounters const*> clients;
    KvPimMetrics gone;

    static Process& instance() {
        static auto& process = *new Process;  // outlives every static client
        return process;
    }
};

template <class Enumeration, class Number, std::size_t size, class Counter>
void copy(KvPimBy<Enumeration, Number, size>& to, std::array<Counter, size> const& from) {
    std::ranges::transform(from, to.numbers.begin(), [](Counter const& counter) { return counter.value(); });
}

// The bounds of durations, as they are compared.
constexpr auto kBounds = [] {
    std::array<std::int64_t, KvPimDurations::kBounds.size()> bounds{};
    std::ranges::transform(KvPimDurations::kBounds, bounds.begin(),
                           [](std::chrono::nanoseconds each) { return each.count(); });
    return bounds;
}();

KvPimRequestOutcome outcomeOf(std::int64_t code, KvPimResult const* result) {
    using Outcome = KvPimRequestOutcome;
    if (result == nullptr) return code == KvPimErrorNotLogin ? Outcome::notLoggedIn : Outcome::invalid;
    if (result->code == 0) return Outcome::succeeded;
    if (!result->isAckTimeout) return Outcome::refused;
    auto const why = result->data != nullptr ? result->data->noAck() : SocketNoAck::unanswered;
    return why == SocketNoAck::notConnected ? Outcome::notConnected
           : why == SocketNoAck::noRoom     ? Outcome::noRoom
                                            : Outcome::unanswered;
}

// What has come, less what has gone; the thread that counts the latter may be ahead.
std::uint64_t difference(std::uint64_t gone, std::uint64_t come) { return come - std::min(gone, come); }

}  // namespace

KvPimCounters::KvPimCounters(std::shared_ptr<KvMainQueue> const& queue) : queue_(queue) {
    state_.set(KvPimConnectionStateDisconnected);
    stateSince_.set(now().time_since_epoch());
    auto& process = Process::instance();
    std::lock_guard const lock(process.mutex);
    process.clients.insert(this);
}

KvPimCounters::~KvPimCounters() {
    auto& process = Process::instance();
    std::lock_guard const lock(process.mutex);
    process.clients.erase(this);
    auto last = read(Time());
    forgetPresent(last);
    add(process.gone, last);
}

KvPimCounters::Time KvPimCounters::now() const {
    auto const queue = queue_.lock();
    return queue ? queue->now() : Time(stateSince_.value());
}

void KvPimCounters::Durations::add(std::chrono::nanoseconds duration) {
    auto const* const bound = std::ranges::lower_bound(kBounds, duration.count());
    counts[static_cast<std::size_t>(bound - kBounds.begin())].add();
    total.add(duration);
}

KvPimDurations KvPimCounters::Durations::read() const {
    KvPimDurations durations;
    std::ranges::transform(counts, durations.counts.begin(), &KvCounter::value);
    durations.total = total.value();
    return durations;
}

void KvPimCounters::onEnd(std::int64_t code, KvPimResult const* result) {
    outcomes_[static_cast<std::size_t>(outcomeOf(code, result))].add();
}

void KvPimCounters::onLoginEnd(std::int64_t code) {
    auto const index = static_cast<std::size_t>(code);
    logins_[index < logins_.size() ? index : std::size_t{KvPimLoginErrorUnknown}].add();
    if (code != KvPimLoginErrorOk) return;
    loginTimes_.add(now() - loginCalled_);
    lost_.reset();
}

void KvPimCounters::onConnectionEnd(KvPimConnectionEnd how) {
    connectionEnds_[static_cast<std::size_t>(how)].add();
    lost_ = now();
}

void KvPimCounters::onReconnected() {
    if (auto const lost = std::exchange(lost_, std::nullopt)) reconnectionTimes_.add(now() - *lost);
}

void KvPimCounters::onState(std::int64_t state) {
    auto const before = state_.value();
    if (before == static_cast<std::uint64_t>(state)) return;
    auto const since = now().time_since_epoch();
    stateTimes_[before].add(since - stateSince_.value());
    stateSince_.set(since);
    state_.set(static_cast<std::uint64_t>(state));
}

std::chrono::nanoseconds KvPimCounters::oldestRequest(Time now) const {
    return pending.empty() ? std::chrono::nanoseconds() : now - pending.front().asked;
}

KvPimMetrics KvPimCounters::read(Time now) const {
    KvPimMetrics metrics;
    metrics.sent = {sent.bytes.value(), sent.frames.value(), difference(overdue.value(), unqueued.messages.value())};
    metrics.received = {received.bytes.value(), received.frames.value(), messagesReceived.value()};
    auto const goneMessages = unqueued.messages.value() + lostMessages, goneBytes = unqueued.bytes.value() + lostBytes;
    metrics.toSend = {difference(goneMessages, queued.messages.value()), difference(goneBytes, queued.bytes.value())};
    metrics.toHandle = {unhandledMessages, unhandledBytes};
    metrics.readingPauses = readingPauses.value();
    metrics.unsent.numbers = {notConnected.value(), noRoom.value(), overdue.value(), lostMessages};
    metrics.ignored.numbers = {unawaited.value(), invalid.value(), late.value(), unasked.value(), left.value()};

    copy(metrics.requests, outcomes_);
    using Outcome = KvPimRequestOutcome;
    auto const& ended = metrics.requests;
    metrics.pendingRequests =
        difference(ended[Outcome::succeeded] + ended[Outcome::refused] + ended[Outcome::unanswered] +
                       ended[Outcome::notConnected] + ended[Outcome::noRoom],
                   requested_.value());
    metrics.roundTrips = roundTrips_.read();

    copy(metrics.logins, logins_);
    metrics.loginTimes = loginTimes_.read();
    copy(metrics.connectionEnds, connectionEnds_);
    copy(metrics.failedReconnections, failedReconnections_);
    metrics.reconnectionTimes = reconnectionTimes_.read();

    copy(metrics.stateTimes, stateTimes_);
    auto const state = state_.value();
    metrics.clients.numbers[state] = 1;
    metrics.stateTimes.numbers[state] +=
        std::max(now.time_since_epoch() - stateSince_.value(), std::chrono::nanoseconds());
    metrics.clients.numbers[0] = 0;  // which is none
    metrics.stateTimes.numbers[0] = {};
    metrics.heartbeat = {pings.value(),        answeredUnread.value(),      pingAnnounced.value(),
                         pingInterval.value(), longestPingInterval.value(), pingAnswerTime.value()};
    return metrics;
}

KvPimMetrics processMetrics() {
    // Let go of without the lock: the end of a queue may be the end of a client's counters.
    std::vector<std::shared_ptr<KvMainQueue>> queues;
    auto& process = Process::instance();
    std::lock_guard const lock(process.mutex);
    auto all = process.gone;
    for (auto const* client : process.clients) {
        auto const& queue = queues.emplace_back(client->queue());
        add(all, client->read(queue ? queue->now() : KvPimCounters::Time()));
    }
    return all;
}

}  // namespace kv
