// What clients, channels and invitation kits tell their delegates, as values: for the streams `events()`. Each event
// stands for the delegate's member of that name, which says more.
#pragma once

#include "Classes/Model/KvFailure.h"
#include "Classes/Model/KvPimAttribute.h"
#include "Classes/Model/KvPimInvitation.h"
#include "Classes/Model/KvPimMember.h"
#include "Classes/Model/KvPimMessage.h"
#include "Classes/Model/KvPimPeerOnlineStatus.h"
#include "Classes/Model/KvPimRestored.h"
#include "Classes/Model/KvPimUserAttributes.h"

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace kv {

/// What a client tells: `std::visit`, `std::get_if` and `std::holds_alternative` take it.
namespace event {

/// `KvPimDelegate::connectionStateChanged`
struct ConnectionStateChanged {
    std::int64_t state;   ///< A KvPimConnectionState.
    std::int64_t reason;  ///< A KvPimConnectionChangeReason.
};
/// `KvPimDelegate::tokenDidExpire`
struct TokenDidExpire {};
/// `KvPimDelegate::messageReceived`
struct MessageReceived {
    std::shared_ptr<KvPimMessage> message;
    std::string peerId;
};
/// `KvPimDelegate::peersOnlineStatusChanged`
struct PeersOnlineStatusChanged {
    std::vector<KvPimPeerOnlineStatus> statuses;
};
/// `KvPimDelegate::peersUserAttributesChanged`
struct PeersUserAttributesChanged {
    std::vector<KvPimUserAttributes> users;
};
/// `KvPimDelegate::onWritable`
struct Writable {};
/// `KvPimDelegate::failureOccurred`
struct FailureOccurred {
    KvFailure failure;
};
/// `KvPimDelegate::connectionRestored`
struct ConnectionRestored {
    KvPimRestored restored;
};

/// `KvPimChannelDelegate::memberJoined`
struct MemberJoined {
    KvPimMember member;
};
/// `KvPimChannelDelegate::memberLeftWithReason`
struct MemberLeft {
    KvPimMember member;
    std::int64_t reason;  ///< A KvPimMemberLeftReason.
};
/// `KvPimChannelDelegate::messageReceived`
struct ChannelMessageReceived {
    std::shared_ptr<KvPimMessage> message;
    KvPimMember member;
};
/// `KvPimChannelDelegate::attributeUpdate`
struct AttributeUpdate {
    std::vector<KvPimAttribute> attributes;
};
/// `KvPimChannelDelegate::memberCount`
struct MemberCount {
    std::int32_t count;
};

/// `KvPimInvitationDelegate::invitationArrived`
struct InvitationArrived {
    std::shared_ptr<KvPimInvitation> invitation;
};
/// `KvPimInvitationDelegate::invitationCanceled`
struct InvitationCanceled {
    std::shared_ptr<KvPimInvitation> invitation;
};
/// `KvPimInvitationDelegate::invitationAccept`
struct InvitationAccepted {
    std::shared_ptr<KvPimInvitation> invitation;
};
/// `KvPimInvitationDelegate::invitationRefused`
struct InvitationRefused {
    std::shared_ptr<KvPimInvitation> invitation;
};
/// `KvPimInvitationDelegate::invitationFailed`
struct InvitationFailed {
    std::shared_ptr<KvPimInvitation> invitation;
    std::int64_t errorCode;  ///< A KvPimInvitationFailedErrorCode.
};

}  // namespace event

/// What `KvPimKit::events` gives.
struct KvPimEvent : std::variant<event::ConnectionStateChanged, event::TokenDidExpire, event::MessageReceived,
                                 event::PeersOnlineStatusChanged, event::PeersUserAttributesChanged, event::Writable,
                                 event::FailureOccurred, event::ConnectionRestored> {
    using variant::variant;
};

/// What `KvPimChannel::events` gives.
struct KvPimChannelEvent : std::variant<event::MemberJoined, event::MemberLeft, event::ChannelMessageReceived,
                                        event::AttributeUpdate, event::MemberCount> {
    using variant::variant;
};

/// What `KvPimInvitationKit::events` gives.
struct KvPimInvitationEvent
    : std::variant<event::InvitationArrived, event::InvitationCanceled, event::InvitationAccepted,
                   event::InvitationRefused, event::InvitationFailed> {
    using variant::variant;
};

/// One call for each kind of event, for std::visit:
///
///     std::visit(kv::KvMatch{[](kv::event::MessageReceived const& it) { ... }, [](auto const&) {}}, *event);
template <class... Calls>
struct KvMatch : Calls... {
    using Calls::operator()...;
};
/// So that the calls alone say what it is.
template <class... Calls>
KvMatch(Calls...) -> KvMatch<Calls...>;

}  // namespace kv
