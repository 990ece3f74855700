#include "Binding/Operations.h"

#include "Binding/Neighbours.h"
#include "Binding/Records.h"
#include "Classes/Model/KvPimMetrics.h"

#include <algorithm>
#include <chrono>

namespace kv::binding {
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
    auto data = arguments.data();
    if (auto bytes = arguments.find<KvBytes>("rawData")) data = makeData(*std::move(bytes));
    std::shared_ptr<KvPimMessage> const message =
        data ? std::make_shared<KvPimRawMessage>(std::move(data)) : std::make_shared<KvPimMessage>();
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
    auto delegate = makeChannelDelegate(session.inbox, delegateOf(arguments));
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
    session.invitationDelegate = makeInvitationDelegate(session.inbox, session.invitations, delegateOf(arguments));
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
    std::erase_if(session.sleeps, [](auto const& sleep) { return !sleep.isActive(); });
    session.sleeps.push_back(session.queue->after(std::chrono::duration_cast<std::chrono::nanoseconds>(time),
                                                  [answer] { answer.result(true); }));
}

template <class Code>
KvPimCodeTable const& codes() {
    return KvPimTables::of(Code{});
}

// clang-format off: a row reads as one
constexpr Operation
    kOperations
        [] =
            {
                // Session
                {"loginByToken", "token text, timeStamp number, userId text", "code", codes<KvPimLoginErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->loginByToken(a.text("token"), a.get<std::int64_t>("timeStamp"), a.text("userId"),
                                            answer.completion<KvPimLoginErrorCode>());
                 }},
                {"logoutWithCompletion", "", "code", codes<KvPimLogoutErrorCode>,
                 [](Session& s, Arguments const&, Answer const& answer) {
                     s.client->logoutWithCompletion(answer.completion<KvPimLogoutErrorCode>());
                 }},
                {"renewToken", "token text, timeStamp number", "code token", codes<KvPimRenewTokenErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->renewToken(a.text("token"), a.get<std::int64_t>("timeStamp"),
                                          answer.completion<KvPimRenewTokenErrorCode, std::string>("token"));
                 }},

                // Channels
                {"createChannelWithId", "channelId text, delegate? channelCallbacks", "result", nullptr, createChannel},
                {"destroyChannelWithId", "channelId text", "result", nullptr, destroyChannel},
                {"joinWithCompletion", "channelId text", "code", codes<KvPimJoinChannelErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     channelOf(s, a).joinWithCompletion(answer.completion<KvPimJoinChannelErrorCode>());
                 }},
                {"leaveWithCompletion", "channelId text", "code", codes<KvPimLeaveChannelErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     channelOf(s, a).leaveWithCompletion(answer.completion<KvPimLeaveChannelErrorCode>());
                 }},
                {"getMembersWithCompletion", "channelId text", "code members", codes<KvPimChannelMembersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     channelOf(s, a).getMembersWithCompletion(
                         answer.completion<KvPimChannelMembersErrorCode, std::optional<std::vector<KvPimMember>>>(
                             "members"));
                 }},
                {"sendMessage", "channelId text, text? text, rawData? data", "code",
                 codes<KvPimChannelMessageErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     channelOf(s, a).sendMessage(messageOf(a), std::nullopt,
                                                 answer.completion<KvPimChannelMessageErrorCode>());
                 }},

                // Peer messages
                {"sendMessageToPeer",
                 "peerId text, text? text, rawData? data, enableOfflineMessaging? flag, enableHistoricalMessaging? "
                 "flag",
                 "code", codes<KvPimPeerMessageErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->sendMessageToPeer(messageOf(a), a.text("peerId"), sendOptionsOf(a),
                                                 answer.completion<KvPimPeerMessageErrorCode>());
                 }},

                // Channel attributes and member counts
                {"setChannelAttributes",
                 "channelId text, attributes attributes, enableNotificationToChannelMembers? flag", "code",
                 codes<KvPimChannelAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->setChannelAttributes(a.text("channelId"), a.get<Attributes>("attributes"),
                                                    notifyOptionsOf(a),
                                                    answer.completion<KvPimChannelAttributesErrorCode>());
                 }},
                {"addOrUpdateChannelAttributes",
                 "channelId text, attributes attributes, enableNotificationToChannelMembers? flag", "code",
                 codes<KvPimChannelAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->addOrUpdateChannelAttributes(a.text("channelId"), a.get<Attributes>("attributes"),
                                                            notifyOptionsOf(a),
                                                            answer.completion<KvPimChannelAttributesErrorCode>());
                 }},
                {"deleteChannelAttributesByKeys",
                 "channelId text, keys texts, enableNotificationToChannelMembers? flag", "code",
                 codes<KvPimChannelAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->deleteChannelAttributesByKeys(a.text("channelId"), a.texts("keys"), notifyOptionsOf(a),
                                                             answer.completion<KvPimChannelAttributesErrorCode>());
                 }},
                {"clearChannelAttributes", "channelId text, enableNotificationToChannelMembers? flag", "code",
                 codes<KvPimChannelAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->clearChannelAttributes(a.text("channelId"), notifyOptionsOf(a),
                                                      answer.completion<KvPimChannelAttributesErrorCode>());
                 }},
                {"getChannelAttributes", "channelId text", "code attributes", codes<KvPimChannelAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->getChannelAttributes(
                         a.text("channelId"),
                         answer.completion<KvPimChannelAttributesErrorCode, std::optional<Attributes>>("attributes"));
                 }},
                {"getChannelAttributesByKeys", "channelId text, keys texts", "code attributes",
                 codes<KvPimChannelAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->getChannelAttributesByKeys(
                         a.text("channelId"), a.texts("keys"),
                         answer.completion<KvPimChannelAttributesErrorCode, std::optional<Attributes>>("attributes"));
                 }},
                {"getChannelMemberCount", "channelIds texts", "code counts", codes<KvPimMemberCountErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->getChannelMemberCount(
                         a.texts("channelIds"),
                         answer.completion<KvPimMemberCountErrorCode, std::optional<std::vector<KvChannelMemberCount>>>(
                             "counts"));
                 }},

                // Attributes of users
                {"setLocalUserAttributes", "attributes attributes", "code", codes<KvPimLocalUserAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->setLocalUserAttributes(a.get<Attributes>("attributes"),
                                                      answer.completion<KvPimLocalUserAttributesErrorCode>());
                 }},
                {"addOrUpdateLocalUserAttributes", "attributes attributes", "code",
                 codes<KvPimLocalUserAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->addOrUpdateLocalUserAttributes(a.get<Attributes>("attributes"),
                                                              answer.completion<KvPimLocalUserAttributesErrorCode>());
                 }},
                {"deleteLocalUserAttributesByKeys", "keys texts", "code", codes<KvPimLocalUserAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->deleteLocalUserAttributesByKeys(a.texts("keys"),
                                                               answer.completion<KvPimLocalUserAttributesErrorCode>());
                 }},
                {"clearLocalUserAttributesWithCompletion", "", "code", codes<KvPimLocalUserAttributesErrorCode>,
                 [](Session& s, Arguments const&, Answer const& answer) {
                     s.client->clearLocalUserAttributesWithCompletion(
                         answer.completion<KvPimLocalUserAttributesErrorCode>());
                 }},
                {"getUserAttributes", "userId text", "code userId attributes", codes<KvPimUserAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->getUserAttributes(a.text("userId"), userAttributesCompletion(answer));
                 }},
                {"getUserAttributesByKeys", "userId text, keys texts", "code userId attributes",
                 codes<KvPimUserAttributesErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->getUserAttributesByKeys(a.text("userId"), a.texts("keys"),
                                                       userAttributesCompletion(answer));
                 }},
                {"subscribePeersUserAttribes", "peerIds texts", "code", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->subscribePeersUserAttribes(a.texts("peerIds"), answer.completion<KvPimPeersErrorCode>());
                 }},
                {"unsubscribePeersUserAttribes", "peerIds texts", "code", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->unsubscribePeersUserAttribes(a.texts("peerIds"),
                                                            answer.completion<KvPimPeersErrorCode>());
                 }},
                {"getPeersUserAttributes", "peerIds texts", "code users", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->getPeersUserAttributes(
                         a.texts("peerIds"),
                         answer.completion<KvPimPeersErrorCode, std::optional<std::vector<KvPimUserAttributes>>>(
                             "users"));
                 }},
                {"getPeersUserAttributesByKeys", "peerIds texts, keys texts", "code users", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->getPeersUserAttributesByKeys(
                         a.texts("peerIds"), a.texts("keys"),
                         answer.completion<KvPimPeersErrorCode, std::optional<std::vector<KvPimUserAttributes>>>(
                             "users"));
                 }},

                // Online status
                {"subscribePeersOnlineStatus", "peerIds texts", "code", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->subscribePeersOnlineStatus(a.texts("peerIds"), answer.completion<KvPimPeersErrorCode>());
                 }},
                {"unsubscribePeersOnlineStatus", "peerIds texts", "code", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->unsubscribePeersOnlineStatus(a.texts("peerIds"),
                                                            answer.completion<KvPimPeersErrorCode>());
                 }},
                {"queryPeersOnlineStatus", "peerIds texts", "code statuses", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->queryPeersOnlineStatus(
                         a.texts("peerIds"),
                         answer.completion<KvPimPeersErrorCode, std::optional<std::vector<KvPimPeerOnlineStatus>>>(
                             "statuses"));
                 }},
                {"queryPeersBySubscriptionOption", "option number", "code peerIds", codes<KvPimPeersErrorCode>,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->queryPeersBySubscriptionOption(
                         a.get<std::int64_t>("option"),
                         answer.completion<KvPimPeersErrorCode, std::optional<std::vector<std::string>>>("peerIds"));
                 }},

                // Invitations
                {"getPimInvitationKit", "delegate? invitationCallbacks", "result", nullptr, getInvitationKit},
                {"newInvitation", "invitation text, inviter text, invitee text, requestInfo? text", "result", nullptr,
                 newInvitation},
                {"sendInvitation", "invitation text, requestInfo? text, responseInfo? text", "code invitation",
                 codes<KvPimInvitationErrorCode>, requestInvitation<&KvPimInvitationKit::sendInvitation>},
                {"cancelInvitation", "invitation text, requestInfo? text, responseInfo? text", "code invitation",
                 codes<KvPimInvitationErrorCode>, requestInvitation<&KvPimInvitationKit::cancelInvitation>},
                {"acceptInvitation", "invitation text, requestInfo? text, responseInfo? text", "code invitation",
                 codes<KvPimInvitationErrorCode>, requestInvitation<&KvPimInvitationKit::acceptInvitation>},
                {"refuseInvitation", "invitation text, requestInfo? text, responseInfo? text", "code invitation",
                 codes<KvPimInvitationErrorCode>, requestInvitation<&KvPimInvitationKit::refuseInvitation>},
                {"invitation", "invitation text", "result", nullptr,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     answer.result(toJson(*invitationOf(s, a)));
                 }},

                // Diagnostics and the rest
                {"bytesQueued", "", "result", nullptr,
                 [](Session& s, Arguments const&, Answer const& answer) { answer.result(s.client->bytesQueued()); }},
                {"metrics", "", "result", nullptr,
                 [](Session& s, Arguments const&, Answer const& answer) {
                     answer.result(toJson(s.client->metrics()));
                 }},
                {"openMetricsText", "isPrometheus? flag", "result", nullptr,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     std::vector const clients{s.client->metrics()};
                     answer.result(toJson(a.find<bool>("isPrometheus").value_or(false) ? prometheusText(clients)
                                                                                       : openMetricsText(clients)));
                 }},
                {"getDebugInfo", "", "result", nullptr,
                 [](Session& s, Arguments const&, Answer const& answer) { answer.result(s.client->getDebugInfo()); }},
                {"getSDKVersion", "", "result", nullptr,
                 [](Session&, Arguments const&,
                    Answer const& answer) { answer.result(toJson(KvPimKit::getSDKVersion())); }},
                {"setParameters", "parameters text", "result", nullptr,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     answer.result(s.client->setParameters(a.text("parameters")));
                 }},
                {"setLogFile", "path text", "result", nullptr,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->setLogFile(a.text("path"));
                     answer.result(true);
                 }},
                {"setLogFilters", "filters number", "result", nullptr,
                 [](Session& s, Arguments const& a, Answer const& answer) {
                     s.client->setLogFilters(a.get<std::int64_t>("filters"));
                     answer.result(true);
                 }},
                {"state", "", "result", nullptr,
                 [](Session& s, Arguments const&,
                    Answer const& answer) { answer.result(toJson(s.client->stateManager())); }},

                // For scripts
                {"sleep", "seconds seconds", "result", nullptr, sleepFor},
                {"quit", "", "", nullptr, [](Session& s, Arguments const&, Answer const&) { s.inbox->end(); }},
};
// clang-format on

/// How an argument of a type is looked at.
struct Type {
    std::string_view name;
    void (*check)(Arguments const& arguments, std::string_view argument);
};

template <class As>
void checkAs(Arguments const& arguments, std::string_view argument) {
    arguments.find<As>(argument);
}

template <DelegateKind kind>
void checkDelegate(Arguments const& arguments, std::string_view argument) {
    checkCallbacks(kind, arguments.find<std::vector<std::string>>(argument));
}

constexpr Type kTypes[] = {
    {"text", checkAs<std::string>},
    {"texts", checkAs<std::vector<std::string>>},
    {"number", checkAs<std::int64_t>},
    {"flag", checkAs<bool>},
    {"seconds", checkAs<Seconds>},
    {"data", checkAs<KvBytes>},
    {"attributes", checkAs<Attributes>},
    {"channelCallbacks", checkDelegate<DelegateKind::channel>},
    {"invitationCallbacks", checkDelegate<DelegateKind::invitation>},
};

std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

}  // namespace

std::span<Operation const> operations() { return kOperations; }

Operation const& operationOf(std::string_view name) {
    auto const* const found = std::ranges::find(kOperations, name, &Operation::name);
    if (found != std::end(kOperations)) return *found;
    std::vector<std::string_view> names;
    for (auto const& operation : kOperations) names.push_back(operation.name);
    throw BadRequest(quoted(name) + " is no operation" + didYouMean(name, names));
}

std::vector<Argument> argumentsOf(Operation const& operation) {
    std::vector<Argument> arguments;
    for (auto rest = operation.arguments; !rest.empty();) {
        auto const one = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(one.size() + 2, rest.size()));
        auto const space = one.find(' ');
        bool const isOptional = one[space - 1] == '?';
        arguments.push_back({one.substr(0, space - (isOptional ? 1 : 0)), one.substr(space + 1), isOptional});
    }
    return arguments;
}

void check(Operation const& operation, Arguments const& arguments) {
    bool takesData = false;
    for (auto const& [name, type, isOptional] : argumentsOf(operation)) {
        std::ranges::find(kTypes, type, &Type::name)->check(arguments, name);
        auto const* const value = arguments.fields().if_contains(name);
        bool const isThere = value != nullptr && !value->is_null();
        if (!isOptional && !isThere) throw BadRequest(quoted(name) + " is missing");
        if (type == "data") takesData = !isThere;
    }
    if (arguments.data() && !takesData) throw BadRequest(quoted(operation.name) + " takes no data beside its text");
}

}  // namespace kv::binding
