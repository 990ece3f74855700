// What the server says without being asked, and who hears of it: the client's delegate, its channels, its invitation
// kit.
#pragma once

#include "Classes/Internal/KvPimShared.h"
#include "Classes/KvPimKit.h"
#include "SocketIO/SocketData.h"

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace kv {

class KvPimFailures;
struct KvPimChannelDelegate;

class KvPimRouter final : public KvPimPart<KvPimRouter> {
public:
    using KvPimPart::KvPimPart;

    /// Tells the delegate, if the client, the delegate and that member are all there, and then the streams of events.
    /// Returns whether the delegate was told.
    template <auto Member, class... Arguments>
    bool tell(Arguments const&... arguments);

    /// Routes the events of the present socket, and hands it to channels and invitation kit.
    void handOutSocket();

    std::shared_ptr<KvPimChannel> createChannelWithId(std::string const& channelId,
                                                      std::weak_ptr<KvPimChannelDelegate> channelDelegate);
    bool destroyChannelWithId(std::string const& channelId);
    std::shared_ptr<KvPimChannel> findChannel(std::optional<std::string> const& channelId) const;
    void forgetChannels();
    /// The application lets go of the client: all streams of events are over.
    void endEvents();

    std::shared_ptr<KvPimInvitationKit> getPimInvitationKit(std::weak_ptr<KvPimFailures> failures);
    void forgetInvitations();

private:
    // ---- Server events, in the order in which they are subscribed
    void channelAttributesUpdated(SocketData const& data);
    void peersOnlineStatusChanged(SocketData const& data);
    void peersUserAttributesChanged(SocketData const& data);
    void messageToPeerReceived(SocketData const& data);
    void invitationNotify(SocketData const& data);
    void channelMemberCountNotify(SocketData const& data);
    void memberJoined(SocketData const& data);
    void memberLeft(SocketData const& data);
    void channelMessageReceived(SocketData const& data);

    std::shared_ptr<KvPimInvitationKit> invitationKit_;
    std::unordered_map<std::string, std::shared_ptr<KvPimChannel>> channelDict_;
};

template <auto Member, class... Arguments>
bool KvPimRouter::tell(Arguments const&... arguments) {
    auto const kit = client_.alive.lock();
    if (client_.heldByApplication.expired() || !kit) return false;
    bool const isTold = tellDelegate<Member>(client_.delegate.lock(), *kit, arguments...);
    client_.events.tell<Member>(arguments...);
    return isTold;
}

}  // namespace kv
