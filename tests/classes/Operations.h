// All operations that ask the server for something, as an application begins them.
#pragma once

#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "support/Test.h"

namespace kv::test {

using Done = KvPimKit::Completion const&;

inline auto codeOnly(Done done) {
    return [done](auto const&, std::int64_t code) { done(code); };
}
inline auto codeOfUser(Done done) {
    return [done](auto const&, std::string const&, std::int64_t code) { done(code); };
}

inline std::vector<KvPimAttribute> const kAttributes{{"k", "v"}};
inline std::vector<std::string> const kIds{"bob"};

struct Call {
    char const* name;
    char const* command;
    void (*start)(KvPimKit& kit, KvPimChannel& channel, Done done);
};

template <void (KvPimInvitationKit::*Operation)(std::shared_ptr<KvPimInvitation>, KvPimKit::Completion)>
void startInvitation(KvPimKit& kit, KvPimChannel&, Done d) {
    auto const& me = kit.stateManager().userId;
    ((*kit.getPimInvitationKit()).*Operation)(KvPimInvitation::initWithInviter(me, me), d);
}

inline Call const kCalls[] = {
    {"join", "join", [](auto&, auto& channel, Done d) { channel.joinWithCompletion(d); }},
    {"members", "getChannelMembers",
     [](auto&, auto& channel, Done d) { channel.getMembersWithCompletion(codeOnly(d)); }},
    {"channel message", "sendChannelMessage",
     [](auto&, auto& channel, Done d) { channel.sendMessage(std::make_shared<KvPimMessage>("x"), {}, d); }},
    {"leave", "leave", [](auto&, auto& channel, Done d) { channel.leaveWithCompletion(d); }},
    {"set channel", "setChannelAttributes",
     [](auto& kit, auto&, Done d) { kit.setChannelAttributes("c", kAttributes, {}, d); }},
    {"add channel", "addOrUpdateChannelAttributes",
     [](auto& kit, auto&, Done d) { kit.addOrUpdateChannelAttributes("c", kAttributes, {}, d); }},
    {"delete channel", "deleteChannelAttributesByKeys",
     [](auto& kit, auto&, Done d) { kit.deleteChannelAttributesByKeys("c", {"k"}, {}, d); }},
    {"clear channel", "clearChannelAttributes",
     [](auto& kit, auto&, Done d) { kit.clearChannelAttributes("c", {}, d); }},
    {"get channel", "getChannelAttributes",
     [](auto& kit, auto&, Done d) { kit.getChannelAttributes("c", codeOnly(d)); }},
    {"get channel keys", "getChannelAttributesByKeys",
     [](auto& kit, auto&, Done d) { kit.getChannelAttributesByKeys("c", {"k"}, codeOnly(d)); }},
    {"counts", "getChannelMemberCount",
     [](auto& kit, auto&, Done d) { kit.getChannelMemberCount({"c"}, codeOnly(d)); }},
    {"set own", "setLocalUserAttributes", [](auto& kit, auto&, Done d) { kit.setLocalUserAttributes(kAttributes, d); }},
    {"add own", "addOrUpdateLocalUserAttributes",
     [](auto& kit, auto&, Done d) { kit.addOrUpdateLocalUserAttributes(kAttributes, d); }},
    {"delete own", "deleteLocalUserAttributesByKeys",
     [](auto& kit, auto&, Done d) { kit.deleteLocalUserAttributesByKeys({"k"}, d); }},
    {"clear own", "clearLocalUserAttributes",
     [](auto& kit, auto&, Done d) { kit.clearLocalUserAttributesWithCompletion(d); }},
    {"get user", "getUserAttributes", [](auto& kit, auto&, Done d) { kit.getUserAttributes("bob", codeOfUser(d)); }},
    {"get user keys", "getUserAttributesByKeys",
     [](auto& kit, auto&, Done d) { kit.getUserAttributesByKeys("bob", {"k"}, codeOfUser(d)); }},
    {"subscribe attributes", "subscribePeersUserAttributes",
     [](auto& kit, auto&, Done d) { kit.subscribePeersUserAttribes(kIds, d); }},
    {"unsubscribe attributes", "unsubscribePeersUserAttributes",
     [](auto& kit, auto&, Done d) { kit.unsubscribePeersUserAttribes(kIds, d); }},
    {"get peers", "getPeersUserAttributes",
     [](auto& kit, auto&, Done d) { kit.getPeersUserAttributes(kIds, codeOnly(d)); }},
    {"get peers keys", "getPeersUserAttributesByKeys",
     [](auto& kit, auto&, Done d) { kit.getPeersUserAttributesByKeys(kIds, {"k"}, codeOnly(d)); }},
    {"subscribe status", "subscribePeersOnlineStatus",
     [](auto& kit, auto&, Done d) { kit.subscribePeersOnlineStatus(kIds, d); }},
    {"unsubscribe status", "unsubscribePeersOnlineStatus",
     [](auto& kit, auto&, Done d) { kit.unsubscribePeersOnlineStatus(kIds, d); }},
    {"query status", "queryPeersOnlineStatus",
     [](auto& kit, auto&, Done d) { kit.queryPeersOnlineStatus(kIds, codeOnly(d)); }},
    {"query subscriptions", "queryPeersBySubscriptionOption",
     [](auto& kit, auto&, Done d) { kit.queryPeersBySubscriptionOption(0, codeOnly(d)); }},
    {"peer message", "sendMessageToPeer",
     [](auto& kit, auto&, Done d) { kit.sendMessageToPeer(std::make_shared<KvPimMessage>("x"), "bob", {}, d); }},
    {"invite", "invitationOp", startInvitation<&KvPimInvitationKit::sendInvitation>},
    {"cancel", "invitationOp", startInvitation<&KvPimInvitationKit::cancelInvitation>},
    {"accept", "invitationOp", startInvitation<&KvPimInvitationKit::acceptInvitation>},
    {"refuse", "invitationOp", startInvitation<&KvPimInvitationKit::refuseInvitation>},
};

}  // namespace kv::test
