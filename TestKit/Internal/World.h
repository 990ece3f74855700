// The users and channels of one app: what is known of them, who is connected, and what they are told. What it does
// belongs to the protocol, so it is the same as in the local service.
#pragma once

#include "Platform/KvMainQueue.h"
#include "TestKit/Internal/Peer.h"
#include "TestKit/Service.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv::test {

/// Each once, in the order in which they came.
using Ids = std::vector<std::string>;
using Attributes = std::vector<std::pair<std::string, std::string>>;

/// Whether the second was not there before.
bool add(Ids& ids, std::string const& id);
bool remove(Ids& ids, std::string_view id);
bool contains(Ids const& ids, std::string_view id);
std::string* find(Attributes& attributes, std::string_view key);
boost::json::array toJson(Ids const& ids);
boost::json::object toJson(Attributes const& attributes);

struct Invitation {
    std::string inviter, invitee, requestInfo, responseInfo;
    std::int64_t expiresAt = 0;
};

/// The two kinds of subscription to a peer, as clients number them.
enum class Watch { status, attributes };

struct User {
    std::shared_ptr<Peer> peer;  // null while not connected
    std::int64_t since = 0;
    Ids channels;
    Attributes attributes;
    Ids watched[2];

    Ids& watchedAs(Watch kind) { return watched[static_cast<int>(kind)]; }
};

struct Channel {
    Ids members;
    Attributes attributes;
};

class World {
public:
    World(std::weak_ptr<KvMainQueue> queue, Limits const& most, std::function<std::int64_t()> clock)
        : limits(most), now(std::move(clock)), queue_(std::move(queue)) {}

    /// Begins the user's session. A user has one: an older one is told and ends.
    void open(std::string const& userId, std::shared_ptr<Peer> const& peer);
    /// Ends the session of this connection; nothing is left to do when a newer one has ended it.
    void close(std::string const& userId, Peer const& peer);
    bool isConnected(std::string_view userId) const;
    /// Null for one who never was connected.
    User* user(std::string_view userId);
    std::size_t keptMessages(std::string_view userId) const;
    boost::json::object describe() const;

    /// Carries a command out. Returns the answer: {"result": N, ...}.
    boost::json::object run(std::string const& userId, std::string_view command, boost::json::value const& payload);

    std::map<std::string, User, std::less<>> users;  // those that ever were connected
    std::map<std::string, Channel, std::less<>> channels;

private:
    friend struct Commands;
    void push(Ids const& userIds, std::string_view event, boost::json::value const& item);
    void tellOthers(std::string const& channelId, std::string_view userId, std::string_view event,
                    boost::json::value const& item);
    void join(std::string const& channelId, std::string const& userId);
    void leave(std::string const& channelId, std::string const& userId, std::string_view reason);
    void setChannelAttributes(std::string const& channelId, Attributes attributes);
    void tellStatus(Ids const& userIds, Ids const& peerIds);
    void tellAttributes(std::string const& userId, Attributes const& before, Attributes const& after);
    Ids watchersOf(Watch kind, std::string_view peerId) const;
    void forget(std::string const& userId);
    void countChanged(std::string const& channelId);
    boost::json::object countsOf(Ids const& channelIds) const;
    void later(std::function<void()> work);
    std::list<Invitation>::iterator pending(std::string_view inviter, std::string_view invitee);
    void tellInvitation(std::string const& userId, Invitation const& invitation, int state);

    Limits const limits;
    std::function<std::int64_t()> const now;
    std::weak_ptr<KvMainQueue> const queue_;
    std::map<std::string, boost::json::array, std::less<>> kept_;  // messages that wait, also for users who never came
    std::list<Invitation> invitations_;
    std::set<std::string> changedCounts_;
    std::shared_ptr<bool> const isThere_ = std::make_shared<bool>(true);
};

/// All commands by name.
std::vector<std::string_view> commandNames();

}  // namespace kv::test
