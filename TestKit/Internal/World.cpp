#include "TestKit/Internal/World.h"

#include <algorithm>

namespace kv::test {

namespace json = boost::json;
namespace {

constexpr int kOnline = 0, kOffline = 1;
constexpr std::string_view kDeleted = "!!&@#DELETED#@&!!";

}  // namespace

json::object toJson(Attributes const& attributes) {
    json::object object;
    for (auto const& [key, value] : attributes) object[key] = value;
    return object;
}

json::array toJson(Ids const& ids) {
    json::array array;
    for (auto const& id : ids) array.emplace_back(id);
    return array;
}

bool contains(Ids const& ids, std::string_view id) { return std::ranges::find(ids, id) != ids.end(); }

bool add(Ids& ids, std::string const& id) {
    if (contains(ids, id)) return false;
    ids.push_back(id);
    return true;
}

bool remove(Ids& ids, std::string_view id) { return std::erase(ids, id) > 0; }

std::string* find(Attributes& attributes, std::string_view key) {
    auto const found = std::ranges::find(attributes, key, &Attributes::value_type::first);
    return found == attributes.end() ? nullptr : &found->second;
}

// ---- Sessions

User* World::user(std::string_view userId) {
    auto const found = users.find(userId);
    return found == users.end() ? nullptr : &found->second;
}

bool World::isConnected(std::string_view userId) const {
    auto const found = users.find(userId);
    return found != users.end() && found->second.peer;
}

void World::open(std::string const& userId, std::shared_ptr<Peer> const& peer) {
    auto& user = users[userId];
    auto const older = user.peer;
    if (older) {
        forget(userId);
        older->emit("disconnectReason", {"KickOff"});
        older->disconnect();
    }
    user.peer = peer;
    user.since = now();
    peer->emit("loginSuccess", {json::object{{"connectionId", peer->id()}}});
    auto const kept = kept_.extract(userId);
    if (kept) peer->emit("MessageToPeerReceived", {json::object{{"msgs", kept.mapped()}}});
    if (!older) tellStatus(watchersOf(Watch::status, userId), {userId});
}

void World::close(std::string const& userId, Peer const& peer) {
    auto* const user = this->user(userId);
    if (user == nullptr || user->peer.get() != &peer) return;
    forget(userId);
    tellStatus(watchersOf(Watch::status, userId), {userId});
}

// What lasts only as long as the connection.
void World::forget(std::string const& userId) {
    auto& user = users[userId];
    user.peer = nullptr;
    user.watched[0].clear();
    user.watched[1].clear();
    for (auto const& channelId : Ids(user.channels)) leave(channelId, userId, "Disconnect");
    tellAttributes(userId, std::exchange(user.attributes, {}), {});
}

// ---- Telling

void World::push(Ids const& userIds, std::string_view event, json::value const& item) {
    for (auto const& userId : userIds)
        if (auto const* const user = this->user(userId); user != nullptr && user->peer) user->peer->emit(event, {item});
}

void World::tellOthers(std::string const& channelId, std::string_view userId, std::string_view event,
                       json::value const& item) {
    Ids others = channels[channelId].members;
    remove(others, userId);
    push(others, event, item);
}

Ids World::watchersOf(Watch kind, std::string_view peerId) const {
    Ids watchers;
    for (auto const& [userId, user] : users)
        if (contains(user.watched[static_cast<int>(kind)], peerId)) watchers.push_back(userId);
    return watchers;
}

void World::tellStatus(Ids const& userIds, Ids const& peerIds) {
    json::object status;
    for (auto const& peerId : peerIds) status[peerId] = isConnected(peerId) ? kOnline : kOffline;
    push(userIds, "PeersOnlineStatusChanged", json::object{{"status", std::move(status)}});
}

void World::tellAttributes(std::string const& userId, Attributes const& before, Attributes const& after) {
    json::object changes;
    auto was = before, is = after;
    for (auto const& [key, value] : after)
        if (auto const* const old = find(was, key); old == nullptr || *old != value) changes[key] = value;
    for (auto const& [key, value] : before)
        if (find(is, key) == nullptr) changes[key] = kDeleted;
    if (changes.empty()) return;
    json::object const attributes{{userId, json::object{{"attributes", std::move(changes)}}}};
    push(watchersOf(Watch::attributes, userId), "PeersUserAttributesChanged", json::object{{"attributes", attributes}});
}

// ---- Channels

void World::join(std::string const& channelId, std::string const& userId) {
    add(channels[channelId].members, userId);
    add(users[userId].channels, channelId);
    tellOthers(channelId, userId, "MemberJoined", json::object{{"channelId", channelId}, {"userId", userId}});
    countChanged(channelId);
}

void World::leave(std::string const& channelId, std::string const& userId, std::string_view reason) {
    remove(channels[channelId].members, userId);
    remove(users[userId].channels, channelId);
    tellOthers(channelId, userId, "MemberLeft",
               json::object{{"channelId", channelId}, {"userId", userId}, {"reason", reason}});
    countChanged(channelId);
    setChannelAttributes(channelId, channels[channelId].attributes);
}

// A channel without members and attributes is none.
void World::setChannelAttributes(std::string const& channelId, Attributes attributes) {
    auto& channel = channels[channelId];
    channel.attributes = std::move(attributes);
    if (channel.members.empty() && channel.attributes.empty()) channels.erase(channelId);
}

// All changes of one turn make one push for each user, and it names all channels of that user.
void World::countChanged(std::string const& channelId) {
    if (changedCounts_.empty()) {
        later([this] {
            Ids told;
            for (auto const& changed : std::exchange(changedCounts_, {}))
                if (auto const found = channels.find(changed); found != channels.end())
                    for (auto const& member : found->second.members) add(told, member);
            for (auto const& userId : told)
                push({userId}, "ChannelMemberCount", json::object{{"counts", countsOf(users[userId].channels)}});
        });
    }
    changedCounts_.insert(channelId);
}

json::object World::countsOf(Ids const& channelIds) const {
    json::object counts;
    for (auto const& channelId : channelIds) {
        auto const found = channels.find(channelId);
        counts[channelId] = found == channels.end() ? 0 : found->second.members.size();
    }
    return counts;
}

void World::later(std::function<void()> work) {
    if (auto const queue = queue_.lock()) {
        queue->post([work = std::move(work), there = std::weak_ptr(isThere_)] {
            if (auto const isThere = there.lock()) work();
        });
    }
}

// ---- Invitations

std::list<Invitation>::iterator World::pending(std::string_view inviter, std::string_view invitee) {
    std::erase_if(invitations_, [this](auto const& each) { return each.expiresAt <= now(); });
    return std::ranges::find_if(invitations_,
                                [&](auto const& each) { return each.inviter == inviter && each.invitee == invitee; });
}

void World::tellInvitation(std::string const& userId, Invitation const& invitation, int state) {
    json::object const told{{"inviter", invitation.inviter},
                            {"invitee", invitation.invitee},
                            {"requestInfo", invitation.requestInfo},
                            {"responseInfo", invitation.responseInfo},
                            {"state", state}};
    push({userId}, "InvitationNotify", json::object{{"invitation", told}});
}

// ---- As the control endpoint of the local service shows it

std::size_t World::keptMessages(std::string_view userId) const {
    auto const found = kept_.find(userId);
    return found == kept_.end() ? 0 : found->second.size();
}

json::object World::describe() const {
    json::object shownUsers, shownChannels;
    for (auto const& [userId, user] : users) {
        shownUsers[userId] = {{"connected", user.peer != nullptr},
                              {"channels", toJson(user.channels)},
                              {"attributes", toJson(user.attributes)},
                              {"statusSubscriptions", toJson(user.watched[0])},
                              {"attributeSubscriptions", toJson(user.watched[1])},
                              {"offlineMessages", keptMessages(userId)}};
    }
    for (auto const& [channelId, channel] : channels)
        shownChannels[channelId] = {{"members", toJson(channel.members)}, {"attributes", toJson(channel.attributes)}};
    return {{"users", std::move(shownUsers)}, {"channels", std::move(shownChannels)}};
}

}  // namespace kv::test
