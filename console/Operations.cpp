#include "console/Operations.h"

#include "Classes/Model/KvPimMetrics.h"
#include "console/Records.h"

#include <algorithm>
#include <chrono>

namespace kv::console {
namespace {

using Attributes = std::vector<KvPimAttribute>;
using InvitationRequest = void (KvPimInvitationKit::*)(std::shared_ptr<KvPimInvitation>,
                                                       KvPimInvitationKit::Completion);

KvPimChannel& channelOf(Session const& session, Arguments const& arguments) {
    auto const found = session.channels.find(arguments.text("channelId"));
    if (found == session.channels.end()) throw NotThere("there is no channel object of this id");
    return *found->second.channel;
}

std::shared_ptr<KvPimInvitation> invitationOf(Session const& session, Arguments const& arguments) {
    auto invitation = session.invitations->find(arguments.text("invitation"));
    if (!invitation) throw NotThere("there is no invitation of this label");
    return invitation;
}

CallbackNames delegateOf(Arguments const& arguments) { return arguments.find<std::vector<std::string>>("delegate"); }

std::shared_ptr<KvPimMessage const> messageOf(Arguments const& arguments) {
    auto text = arguments.find<std::string>("text");
    auto data = arguments.find<KvBytes>("rawData");
    std::shared_ptr<KvPimMessage> const message =
        data ? std::make_shared<KvPimRawMessage>(makeData(*std::move(data))) : std::make_shared<KvPimMessage>();
    message->text = std::move(text);
    return message;
}

std::optional<KvPimSendMessageOptions> sendOptionsOf(Arguments const& arguments) {
    auto const offline = arguments.find<bool>("enableOfflineMessaging");
    auto const historical = arguments.find<bool>("enableHistoricalMessaging");
    if (!offline && !historical) return std::nullopt;
    return KvPimSendMessageOptions{offline.value_or(false), historical.value_or(false)};
}

KvPimChannelAttributeOptions notifyOptionsOf(Arguments const& arguments) {
    return {arguments.find<bool>("enableNotificationToChannelMembers").value_or(false)};
}

KvPimKit::UserAttributesCompletion userAttributesCompletion(Answer const& answer) {
    return [answer](auto const& attributes, std::string const& userId, std::int64_t errorCode) {
        answer.code<KvPimUserAttributesErrorCode>(errorCode, {{"userId", userId}, {"attributes", toJson(attributes)}});
    };
}

void createChannel(Session& session, Arguments const& arguments, Answer const& answer) {
    auto const channelId = arguments.text("channelId");
    auto delegate = makeChannelDelegate(session.output, delegateOf(arguments));
    auto channel = session.client->createChannelWithId(channelId, delegate);
    answer.result(channel != nullptr);
    if (channel) session.channels[channelId] = {std::move(delegate), std::move(channel)};
}

void destroyChannel(Session& session, Arguments const& arguments, Answer const& answer) {
    auto const channelId = arguments.text("channelId");
    session.channels.erase(channelId);
    answer.result(session.client->destroyChannelWithId(channelId));
}

void getInvitationKit(Session& session, Arguments const& arguments, Answer const& answer) {
    session.invitationDelegate = makeInvitationDelegate(session.output, session.invitations, delegateOf(arguments));
    session.client->getPimInvitationKit()->setDelegate(session.invitationDelegate);
    answer.result(true);
}

void newInvitation(Session& session, Arguments const& arguments, Answer const& answer) {
    auto const label = arguments.text("invitation");
    auto const invitation = KvPimInvitation::initWithInviter(arguments.text("inviter"), arguments.text("invitee"));
    invitation->requestInfo = arguments.find<std::string>("requestInfo");
    session.invitations->set(label, invitation);
    answer.result(true);
}

template <InvitationRequest request>
void requestInvitation(Session& session, Arguments const& arguments, Answer const& answer) {
    auto const invitation = invitationOf(session, arguments);
    auto const requestInfo = arguments.find<std::string>("requestInfo");
    auto const responseInfo = arguments.find<std::string>("responseInfo");
    if (requestInfo) invitation->requestInfo = *requestInfo;
    if (responseInfo) invitation->responseInfo = *responseInfo;
    auto const kit = session.client->getPimInvitationKit();
    ((*kit).*request)(invitation, [answer, invitation](std::int64_t errorCode) {
        answer.code<KvPimInvitationErrorCode>(errorCode, {{"invitation", toJson(*invitation)}});
    });
}

void sleepFor(Session& session, Arguments const& arguments, Answer const& answer) {
    auto const time = std::chrono::duration<double>(arguments.get<Seconds>("seconds").count);
    session.sleep = session.queue->after(std::chrono::duration_cast<std::chrono::nanoseconds>(time),
                                         [answer] { answer.result(true); });
}

constexpr Operation kOperations[] = {
    // Session
    {"loginByToken",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->loginByToken(a.text("token"), a.get<std::int64_t>("timeStamp"), a.text("userId"), answer.completion<KvPimLoginErrorCode>());
     }},
    {"logoutWithCompletion",
     [](Session& s, Arguments const&, Answer const& answer) { s.client->logoutWithCompletion(answer.completion<KvPimLogoutErrorCode>()); }},
    {"renewToken",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->renewToken(a.text("token"), a.get<std::int64_t>("timeStamp"), answer.completion<KvPimRenewTokenErrorCode, std::string>("token"));
     }},

    // Channels
    {"createChannelWithId", createChannel},
    {"destroyChannelWithId", destroyChannel},
    {"joinWithCompletion",
     [](Session& s, Arguments const& a, Answer const& answer) {
         channelOf(s, a).joinWithCompletion(answer.completion<KvPimJoinChannelErrorCode>());
     }},
    {"leaveWithCompletion",
     [](Session& s, Arguments const& a, Answer const& answer) {
         channelOf(s, a).leaveWithCompletion(answer.completion<KvPimLeaveChannelErrorCode>());
     }},
    {"getMembersWithCompletion",
     [](Session& s, Arguments const& a, Answer const& answer) {
         channelOf(s, a).getMembersWithCompletion(
             answer.completion<KvPimChannelMembersErrorCode, std::optional<std::vector<KvPimMember>>>("members"));
     }},
    {"sendMessage",
     [](Session& s, Arguments const& a, Answer const& answer) {
         channelOf(s, a).sendMessage(messageOf(a), std::nullopt, answer.completion<KvPimChannelMessageErrorCode>());
     }},

    // Peer messages
    {"sendMessageToPeer",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->sendMessageToPeer(messageOf(a), a.text("peerId"), sendOptionsOf(a), answer.completion<KvPimPeerMessageErrorCode>());
     }},

    // Channel attributes and member counts
    {"setChannelAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->setChannelAttributes(a.text("channelId"), a.get<Attributes>("attributes"), notifyOptionsOf(a),
                                        answer.completion<KvPimChannelAttributesErrorCode>());
     }},
    {"addOrUpdateChannelAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->addOrUpdateChannelAttributes(a.text("channelId"), a.get<Attributes>("attributes"),
                                                notifyOptionsOf(a), answer.completion<KvPimChannelAttributesErrorCode>());
     }},
    {"deleteChannelAttributesByKeys",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->deleteChannelAttributesByKeys(a.text("channelId"), a.texts("keys"), notifyOptionsOf(a),
                                                 answer.completion<KvPimChannelAttributesErrorCode>());
     }},
    {"clearChannelAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->clearChannelAttributes(a.text("channelId"), notifyOptionsOf(a), answer.completion<KvPimChannelAttributesErrorCode>());
     }},
    {"getChannelAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->getChannelAttributes(a.text("channelId"),
                                        answer.completion<KvPimChannelAttributesErrorCode, std::optional<Attributes>>("attributes"));
     }},
    {"getChannelAttributesByKeys",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->getChannelAttributesByKeys(a.text("channelId"), a.texts("keys"),
                                              answer.completion<KvPimChannelAttributesErrorCode, std::optional<Attributes>>("attributes"));
     }},
    {"getChannelMemberCount",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->getChannelMemberCount(a.texts("channelIds"),
                                         answer.completion<KvPimMemberCountErrorCode, std::optional<std::vector<KvChannelMemberCount>>>("counts"));
     }},

    // Attributes of users
    {"setLocalUserAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->setLocalUserAttributes(a.get<Attributes>("attributes"), answer.completion<KvPimLocalUserAttributesErrorCode>());
     }},
    {"addOrUpdateLocalUserAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->addOrUpdateLocalUserAttributes(a.get<Attributes>("attributes"), answer.completion<KvPimLocalUserAttributesErrorCode>());
     }},
    {"deleteLocalUserAttributesByKeys",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->deleteLocalUserAttributesByKeys(a.texts("keys"), answer.completion<KvPimLocalUserAttributesErrorCode>());
     }},
    {"clearLocalUserAttributesWithCompletion",
     [](Session& s, Arguments const&, Answer const& answer) {
         s.client->clearLocalUserAttributesWithCompletion(answer.completion<KvPimLocalUserAttributesErrorCode>());
     }},
    {"getUserAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->getUserAttributes(a.text("userId"), userAttributesCompletion(answer));
     }},
    {"getUserAttributesByKeys",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->getUserAttributesByKeys(a.text("userId"), a.texts("keys"), userAttributesCompletion(answer));
     }},
    {"subscribePeersUserAttribes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->subscribePeersUserAttribes(a.texts("peerIds"), answer.completion<KvPimPeersErrorCode>());
     }},
    {"unsubscribePeersUserAttribes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->unsubscribePeersUserAttribes(a.texts("peerIds"), answer.completion<KvPimPeersErrorCode>());
     }},
    {"getPeersUserAttributes",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->getPeersUserAttributes(a.texts("peerIds"),
                                          answer.completion<KvPimPeersErrorCode, std::optional<std::vector<KvPimUserAttributes>>>("users"));
     }},
    {"getPeersUserAttributesByKeys",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->getPeersUserAttributesByKeys(
             a.texts("peerIds"), a.texts("keys"),
             answer.completion<KvPimPeersErrorCode, std::optional<std::vector<KvPimUserAttributes>>>("users"));
     }},

    // Online status
    {"subscribePeersOnlineStatus",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->subscribePeersOnlineStatus(a.texts("peerIds"), answer.completion<KvPimPeersErrorCode>());
     }},
    {"unsubscribePeersOnlineStatus",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->unsubscribePeersOnlineStatus(a.texts("peerIds"), answer.completion<KvPimPeersErrorCode>());
     }},
    {"queryPeersOnlineStatus",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->queryPeersOnlineStatus(
             a.texts("peerIds"), answer.completion<KvPimPeersErrorCode, std::optional<std::vector<KvPimPeerOnlineStatus>>>("statuses"));
     }},
    {"queryPeersBySubscriptionOption",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->queryPeersBySubscriptionOption(
             a.get<std::int64_t>("option"), answer.completion<KvPimPeersErrorCode, std::optional<std::vector<std::string>>>("peerIds"));
     }},

    // Invitations
    {"getPimInvitationKit", getInvitationKit},
    {"newInvitation", newInvitation},
    {"sendInvitation", requestInvitation<&KvPimInvitationKit::sendInvitation>},
    {"cancelInvitation", requestInvitation<&KvPimInvitationKit::cancelInvitation>},
    {"acceptInvitation", requestInvitation<&KvPimInvitationKit::acceptInvitation>},
    {"refuseInvitation", requestInvitation<&KvPimInvitationKit::refuseInvitation>},
    {"invitation",
     [](Session& s, Arguments const& a, Answer const& answer) { answer.result(toJson(*invitationOf(s, a))); }},

    // Diagnostics and the rest
    {"bytesQueued",
     [](Session& s, Arguments const&, Answer const& answer) { answer.result(s.client->bytesQueued()); }},
    {"metrics", [](Session& s, Arguments const&, Answer const& answer) { answer.result(toJson(s.client->metrics())); }},
    {"getDebugInfo",
     [](Session& s, Arguments const&, Answer const& answer) { answer.result(s.client->getDebugInfo()); }},
    {"getSDKVersion",
     [](Session&, Arguments const&, Answer const& answer) { answer.result(toJson(KvPimKit::getSDKVersion())); }},
    {"setParameters",
     [](Session& s, Arguments const& a, Answer const& answer) {
         answer.result(s.client->setParameters(a.text("parameters")));
     }},
    {"setLogFile",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->setLogFile(a.text("path"));
         answer.result(true);
     }},
    {"setLogFilters",
     [](Session& s, Arguments const& a, Answer const& answer) {
         s.client->setLogFilters(a.get<std::int64_t>("filters"));
         answer.result(true);
     }},
    {"state",
     [](Session& s, Arguments const&, Answer const& answer) { answer.result(toJson(s.client->stateManager())); }},

    // The console itself
    {"sleep", sleepFor},
    {"quit", [](Session& s, Arguments const&, Answer const&) { s.isQuit = true; }},
};

}  // namespace

Operation const* findOperation(std::string_view name) {
    auto const* const found = std::ranges::find(kOperations, name, &Operation::name);
    return found == std::end(kOperations) ? nullptr : found;
}

std::vector<std::string_view> operationNames() {
    std::vector<std::string_view> names;
    for (auto const& operation : kOperations) names.push_back(operation.name);
    return names;
}

}  // namespace kv::console
