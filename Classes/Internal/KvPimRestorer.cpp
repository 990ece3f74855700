#include "Classes/Internal/KvPimRestorer.h"

#include "Classes/KvPimChannel.h"
#include "Classes/Utils/Recording/KvRecorder.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <type_traits>

namespace kv {
namespace {

// From the sending of a request that was refused to its repetition, at least; by refusals in a row.
constexpr std::array<std::chrono::milliseconds, 6> kRefusalPauses{
    std::chrono::milliseconds(0),  std::chrono::milliseconds(10), std::chrono::milliseconds(20),
    std::chrono::milliseconds(40), std::chrono::milliseconds(80), std::chrono::milliseconds(100)};

}  // namespace

void KvPimRestorer::begin() {
    Attempt const first{++number_, 0, client_.mainQueue->now()};
    items_.clear();
    unanswered_ = failed_ = 0;
    told_ = Told::nothing;
    restoreChannels(client_.stateHelper.channelManager.channels(), first);
    restore<std::vector<KvPimAttribute>, &KvPimKit::setLocalUserAttributes>(
        Kind::localUserAttributes,
        [](KvPimStateHelper const& state) { return state.localUserAttributes.pimAttributes(); },
        &KvPimStateHelper::attributeWrites, first);
    restore<std::vector<std::string>, &KvPimKit::subscribePeersOnlineStatus>(
        Kind::onlineStatusSubscription,
        [](KvPimStateHelper const& state) { return state.subscribedOnlineStatusPeerIds(); },
        &KvPimStateHelper::statusSubscriptions, first);
    restore<std::vector<std::string>, &KvPimKit::subscribePeersUserAttribes>(
        Kind::userAttributesSubscription,
        [](KvPimStateHelper const& state) { return state.subscribedAttributesPeerIds(); },
        &KvPimStateHelper::attributeSubscriptions, first);
    if (!items_.empty()) return;
    client_.mainQueue->post([restorer = weak(), number = number_] {
        auto const self = living(restorer);
        if (self && self->number_ == number) self->tellIfAnswered();
    });
}

void KvPimRestorer::restoreChannels(Channels channels, Attempt const& attempt) {
    // A channel that was destroyed would be asked for in vain: its object has no socket of this connection.
    std::erase_if(channels, [this](auto const& channel) {
        bool const isWanted = router_.findChannel(channel->channelId()) == channel &&
                              client_.stateHelper.channelManager.isJoined(channel);
        if (!isWanted) forget(Kind::channel, channel->channelId());
        return !isWanted;
    });
    if (!client_.stateManager->login || channels.empty()) return;
    for (auto const& channel : channels) add(Kind::channel, channel->channelId());
    KvRecorder::Restoring const recorded(client_.recorder);
    struct Group {
        std::size_t open;
        Channels failed;
    };
    auto const group = std::make_shared<Group>(Group{channels.size(), {}});
    for (auto const& channel : channels) {
        channel->joinWithCompletion([restorer = weak(), attempt, group, channel](std::int64_t code) {
            auto const self = living(restorer);
            if (self) self->onAnswer(attempt, Kind::channel, channel->channelId(), code);
            if (code != 0) group->failed.push_back(channel);
            if (--group->open > 0 || group->failed.empty() || !self) return;
            self->retry(attempt, &KvPimStateHelper::leaves, [group](KvPimRestorer& again, Attempt const& next) {
                again.restoreChannels(group->failed, next);
            });
        });
    }
}

template <class List, void (KvPimKit::*Operation)(List const&, KvPimKit::Completion), class Read>
void KvPimRestorer::restore(Kind kind, Read read, KvUnansweredChanges KvPimStateHelper::*changes,
                            Attempt const& attempt) {
    auto const kit = client_.alive.lock();
    auto const list = read(client_.stateHelper);
    if (list.empty()) forget(kind);
    if (!client_.stateManager->login || list.empty() || !kit) return;
    auto& item = add(kind);
    if constexpr (std::is_same_v<List, std::vector<std::string>>) item.peerIds = list;
    KvRecorder::Restoring const recorded(client_.recorder);
    ((*kit).*Operation)(list, [restorer = weak(), kind, read, changes, attempt](std::int64_t code) {
        auto const self = living(restorer);
        if (!self) return;
        self->onAnswer(attempt, kind, {}, code);
        if (code == 0) return;
        self->retry(attempt, changes, [kind, read, changes](KvPimRestorer& again, Attempt const& next) {
            again.restore<List, Operation>(kind, read, changes, next);
        });
    });
}

KvPimRestored::Item& KvPimRestorer::add(Kind kind, std::string const& channelId) {
    auto const [place, isNew] = items_.try_emplace({kind, channelId});
    if (isNew) {
        place->second.kind = kind;
        place->second.channelId = channelId;
        ++unanswered_;
    }
    return place->second;
}

void KvPimRestorer::onAnswer(Attempt const& attempt, Kind kind, std::string const& channelId, std::int64_t code) {
    auto const found = items_.find({kind, channelId});
    if (attempt.number != number_ || found == items_.end()) return;
    auto& item = found->second;
    if (item.attempts++ == 0) --unanswered_;
    if (item.code != 0) --failed_;
    if (code != 0) ++failed_;
    item.code = code;
    tellIfAnswered();
}

void KvPimRestorer::forget(Kind kind, std::string const& channelId) {
    auto const gone = items_.extract({kind, channelId});
    if (gone.empty()) return;
    if (gone.mapped().attempts == 0) --unanswered_;
    if (gone.mapped().code != 0) --failed_;
    tellIfAnswered();
}

void KvPimRestorer::tellIfAnswered() {
    auto const known = failed_ == 0 ? Told::all : Told::part;
    if (unanswered_ > 0 || known <= told_) return;
    told_ = known;
    KvPimRestored restored;
    for (auto const& [key, item] : items_) restored.items.push_back(item);
    router_.tell<&KvPimDelegate::connectionRestored>(restored);
}

// A server that refuses at once would be asked again as fast as it answers. One that takes its time sets the pace
// itself.
template <class Again>
void KvPimRestorer::retry(Attempt const& refused, KvUnansweredChanges KvPimStateHelper::*changes, Again again) {
    if (refused.number != number_) return;
    auto& queue = *client_.mainQueue;
    auto const pause = kRefusalPauses[std::min(refused.refusals, kRefusalPauses.size() - 1)];
    auto const timer = std::make_shared<KvQueueTimer>();
    *timer = queue.after(refused.began + pause - queue.now(),
                         [restorer = weak(), timer, refused, changes, again = std::move(again)] {
                             auto const self = living(restorer);
                             if (!self || self->number_ != refused.number) return;
                             Attempt const next{refused.number, refused.refusals + 1, self->client_.mainQueue->now()};
                             // What the application is changing at this moment must not be undone by what was there
                             // before.
                             if ((self->client_.stateHelper.*changes).any()) return self->retry(next, changes, again);
                             again(*self, next);
                         });
}

}  // namespace kv
