#include "SocketIO/AckTable.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace kv::sio {
namespace {

// Beyond this a time-out means "never"; it keeps the sum with the clock far from overflow.
constexpr double kMostSeconds = 1e9;
constexpr std::size_t kFewDeadlines = 64;
constexpr std::size_t kMuch = 4096;

}  // namespace

std::chrono::nanoseconds boundedTimeout(std::chrono::duration<double> timeout) {
    auto const seconds = std::isnan(timeout.count()) ? 0.0 : std::clamp(timeout.count(), 0.0, kMostSeconds);
    return std::chrono::round<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

AckTable::Pending AckTable::add(std::chrono::duration<double> timeout, Handler done) {
    auto const queue = queue_.lock();
    auto const now = queue->now(), deadline = now + boundedTimeout(timeout);
    auto const id = nextId_++;
    metrics_->pending.push_back(handlers_.try_emplace(id, now, std::move(done)).first->second);
    forgetAnswered();
    deadlines_.emplace_back(deadline, id);
    std::push_heap(deadlines_.begin(), deadlines_.end(), std::greater<>());
    if (!timer_.isActive() || deadline < timerDue_) arm();
    return {id, deadline};
}

void AckTable::answer(std::optional<std::uint64_t> id, SocketData const& data, Time now) {
    if (!id || *id >= nextId_) {
        ++unasked_;
        return metrics_->unasked.add();
    }
    auto entry = handlers_.extract(*id);
    if (entry.empty()) return metrics_->late.add();
    auto& asked = entry.mapped();
    metrics_->onAnswer(now - asked.asked);
    asked.unlink();
    if (asked.done) asked.done(data);
}

void AckTable::forgetAnswered() {
    if (deadlines_.size() < kFewDeadlines || deadlines_.size() < 2 * handlers_.size()) return;
    std::erase_if(deadlines_, [this](Entry const& entry) { return !handlers_.contains(entry.second); });
    std::make_heap(deadlines_.begin(), deadlines_.end(), std::greater<>());
}

void AckTable::arm() {
    auto const queue = queue_.lock();
    if (!queue || deadlines_.empty()) return;
    timerDue_ = deadlines_.front().first;
    timer_ = queue->after(timerDue_ - queue->now(), [self = shared_from_this()] { self->onTimer(); });
}

void AckTable::onTimer() {
    auto const queue = queue_.lock();
    auto const now = queue->now();
    auto const madeLater = nextId_;  // by the handlers below: their turn is the next one
    while (!deadlines_.empty() && deadlines_.front().first <= now && deadlines_.front().second < madeLater) {
        auto const id = deadlines_.front().second;
        std::pop_heap(deadlines_.begin(), deadlines_.end(), std::greater<>());
        deadlines_.pop_back();
        auto entry = handlers_.extract(id);
        if (entry.empty()) continue;
        entry.mapped().unlink();
        if (auto const& done = entry.mapped().done) endWithoutAnswer(id, done);
    }
    forgetAnswered();
    if (handlers_.empty()) {
        deadlines_.clear();
        unsent_.clear();
    }
    giveBack();
    arm();
}

void AckTable::endWithoutAnswer(std::uint64_t id, Handler const& done) {
    auto const unsent = unsent_.extract(id);
    boost::json::array const items{kNoAck};
    done(SocketData(items, unsent.empty() ? SocketNoAck::unanswered : unsent.mapped()));
}

// What a burst of requests has made large. At time-outs only: a burst that goes on has some of them pending.
void AckTable::giveBack() {
    if (deadlines_.capacity() < kMuch || deadlines_.capacity() / 8 < deadlines_.size()) return;
    deadlines_.shrink_to_fit();
    handlers_.rehash(0);
}

}  // namespace kv::sio
