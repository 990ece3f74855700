// Peers: their attributes and online status, read once or subscribed to, and messages to them. Failures of this family
// are reported before the completion hears of them.
#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvCollections.h"
#include "Classes/Internal/KvMessageContent.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/Utils/Logan/LoganManager.h"

namespace kv {
namespace json = boost::json;
namespace {

// Only the two subscribe operations let the server's 6 through.
constexpr KvCodesOf<KvPimPeersErrorCode> kSubscribeCodes{.noAck = KvPimPeersErrorTimeout,
                                                         .tooManyRequests = KvPimPeersErrorTooManyRequests,
                                                         .other = KvPimPeersErrorFailure,
                                                         .passed = {{{6, KvPimPeersErrorServer6}}}};
constexpr KvCodesOf<KvPimPeersErrorCode> kOtherCodes{.noAck = KvPimPeersErrorTimeout,
                                                     .tooManyRequests = KvPimPeersErrorTooManyRequests,
                                                     .other = KvPimPeersErrorFailure};

enum class Reported { always, withClient };

constexpr KvOperationRow row(std::string_view command, KvCodesOf<KvPimPeersErrorCode> codes, std::string_view logLine,
                             std::string_view action, std::string_view interface,
                             Reported reported = Reported::always) {
    return {.command = command,
            .codes = codes,
            .invalidArgument = KvPimPeersErrorInvalidArgument,
            .logLine = logLine,
            .report = {KvReport::About::user, action, interface, KvReport::Order::beforeCompletion,
                       reported == Reported::withClient}};
}

constexpr KvOperation kSubscribeAttributes =
    row("subscribePeersUserAttributes", kSubscribeCodes, "subscribePeersUserAttribes: %@", KvLoganActionStringSub,
        "-[KvPimKit subscribePeersUserAttribes:completion:]");
constexpr KvOperation kUnsubscribeAttributes =
    row("unsubscribePeersUserAttributes", kOtherCodes, "unsubscribePeersUserAttribes: %@", KvLoganActionStringUnsub,
        "-[KvPimKit unsubscribePeersUserAttribes:completion:]");
constexpr KvOperation kGetAttributes =
    row("getPeersUserAttributes", kOtherCodes, "getPeersUserAttributes: %@", KvLoganActionStringGet,
        "-[KvPimKit getPeersUserAttributes:completion:]", Reported::withClient);
constexpr KvOperation kGetAttributesByKeys =
    row("getPeersUserAttributesByKeys", kOtherCodes, "getPeersUserAttributesByKeys: %@", KvLoganActionStringGet,
        "-[KvPimKit getPeersUserAttributes:byKeys:completion:]", Reported::withClient);
constexpr KvOperation kSubscribeStatus =
    row("subscribePeersOnlineStatus", kSubscribeCodes, "subscribe user onlineStatus: %@", KvLoganActionStringSub,
        "-[KvPimKit subscribePeersOnlineStatus:completion:]");
constexpr KvOperation kUnsubscribeStatus =
    row("unsubscribePeersOnlineStatus", kOtherCodes, "subscribe user onlineStatus: %@", KvLoganActionStringUnsub,
        "-[KvPimKit unsubscribePeersOnlineStatus:completion:]");
constexpr KvOperation kQueryStatus = row("queryPeersOnlineStatus", kOtherCodes, "query user onlineStatus: %@",
                                         KvLoganActionStringGet, "-[KvPimKit queryPeersOnlineStatus:completion:]");
constexpr KvOperation kQueryBySubscription =
    row("queryPeersBySubscriptionOption", kOtherCodes, "subscribe users: %@", KvLoganActionStringGet,
        "-[KvPimKit queryPeersBySubscriptionOption:completion:]");

constexpr KvOperation kSendMessage{
    {.command = "sendMessageToPeer",
     .codes = KvCodesOf<KvPimPeerMessageErrorCode>{.noAck = KvPimPeerMessageErrorTimeout,
                                                   .tooManyRequests = KvPimPeerMessageErrorTooManyRequests,
                                                   .other = KvPimPeerMessageErrorFailure,
                                                   .passed = {{{3, KvPimPeerMessageErrorServer3},
                                                               {4, KvPimPeerMessageErrorServer4},
                                                               {6, KvPimPeerMessageErrorServer6},
                                                               {7, KvPimPeerMessageErrorTooLong}}}},
     .logLine = "send peer message: %@"}};

bool areValidIds(std::vector<std::string> const& ids) { return !ids.empty() && std::ranges::all_of(ids, isValidId); }

auto payloadOfIds(std::vector<std::string> const& ids) {
    return [&ids] { return payloadOf({{"userIds", stringsOf(ids)}}); };
}

/// Reads a batch of users' attributes. An answer that finds no client any more has nobody to go to, and is dropped.
auto readingPeers(std::weak_ptr<KvPimKit> kit, KvPimKit::PeersAttributesCompletion done) {
    return [kit = std::move(kit), done = std::move(done)](std::int64_t code, KvPimResult const* result) {
        if (result != nullptr && kit.expired()) return;
        std::optional<std::vector<KvPimUserAttributes>> users;
        if (code == 0) {
            users.emplace();
            if (auto const* peers = dictionaryOf(*result, "attributes")) {
                for (auto const& [peerId, value] : *peers) {
                    auto const* entry = result->data->binary(value) ? nullptr : value.if_object();
                    auto& user = users->emplace_back(KvPimUserAttributes{peerId, std::nullopt});
                    bool const isGiven = entry != nullptr && asInteger(valueOf(entry, "result")) == 0;
                    if (isGiven) user.attributes = attributesWithStateFrom(objectOf(entry, "attributes"));
                }
            }
        }
        complete(done, users, code);
    };
}

}  // namespace

void KvPimKit::subscribePeersUserAttribes(std::vector<std::string> const& peerIds, Completion done) {
    impl()->requests.request(
        kSubscribeAttributes, areValidIds(peerIds), payloadOfIds(peerIds),
        impl()->requests.recording(&KvPimStateHelper::attributeSubscriptions, std::move(done),
                                   [peerIds](KvPimStateHelper& state) { state.subscribeAttributesOf(peerIds); }));
}

void KvPimKit::unsubscribePeersUserAttribes(std::vector<std::string> const& peerIds, Completion done) {
    impl()->requests.request(
        kUnsubscribeAttributes, areValidIds(peerIds), payloadOfIds(peerIds),
        impl()->requests.recording(&KvPimStateHelper::attributeSubscriptions, std::move(done),
                                   [peerIds](KvPimStateHelper& state) { state.unsubscribeAttributesOf(peerIds); }));
}

void KvPimKit::getPeersUserAttributes(std::vector<std::string> const& peerIds, PeersAttributesCompletion done) {
    impl()->requests.request(kGetAttributes, areValidIds(peerIds), payloadOfIds(peerIds),
                             readingPeers(impl()->heldByApplication, std::move(done)));
}

void KvPimKit::getPeersUserAttributesByKeys(std::vector<std::string> const& peerIds,
                                            std::vector<std::string> const& keys, PeersAttributesCompletion done) {
    impl()->requests.request(
        kGetAttributesByKeys, areValidIds(peerIds) && !keys.empty(),
        [&] {
            return payloadOf({{"userIds", stringsOf(peerIds)}, {"attributeKeys", stringsOf(keys)}});
        },
        readingPeers(impl()->heldByApplication, std::move(done)));
}

void KvPimKit::subscribePeersOnlineStatus(std::vector<std::string> const& peerIds, Completion done) {
    impl()->requests.request(
        kSubscribeStatus, areValidIds(peerIds), payloadOfIds(peerIds),
        impl()->requests.recording(&KvPimStateHelper::statusSubscriptions, std::move(done),
                                   [peerIds](KvPimStateHelper& state) { state.subscribeOnlineStatusOf(peerIds); }));
}

void KvPimKit::unsubscribePeersOnlineStatus(std::vector<std::string> const& peerIds, Completion done) {
    impl()->requests.request(kUnsubscribeStatus, areValidIds(peerIds), payloadOfIds(peerIds),
                             impl()->requests.recording(&KvPimStateHelper::statusSubscriptions, std::move(done),
                                                        [peerIds](KvPimStateHelper& state) {
                                                            state.unsubscribeOnlineStatusOf(peerIds);
                                                            state.onlinePeersManager.unsubscribeOnlineStatusOf(peerIds);
                                                        }));
}

void KvPimKit::queryPeersOnlineStatus(std::vector<std::string> const& peerIds, OnlineStatusCompletion done) {
    impl()->requests.request(kQueryStatus, areValidIds(peerIds), payloadOfIds(peerIds),
                             [done = std::move(done)](std::int64_t code, KvPimResult const* result) {
                                 std::optional<std::vector<KvPimPeerOnlineStatus>> statuses;
                                 if (code == 0) {
                                     auto const* status = dictionaryOf(*result, "status");
                                     statuses.emplace();
                                     // An answer counts online as true, unlike the pushes.
                                     if (status != nullptr)
                                         statuses = kv_map(*status, [](auto const& id, auto const& value) {
                                             return KvPimPeerOnlineStatus{id, asTruth(&value)};
                                         });
                                 }
                                 complete(done, statuses, code);
                             });
}

void KvPimKit::queryPeersBySubscriptionOption(std::int64_t option, PeersCompletion done) {
    impl()->requests.request(
        kQueryBySubscription, true,
        [option] {
            return payloadOf({{"option", option}});
        },
        [done = std::move(done)](std::int64_t code, KvPimResult const* result) {
            std::optional<std::vector<std::string>> peerIds;
            if (code == 0) peerIds = stringsFrom(arrayOf(result->response, "userIds"));
            complete(done, peerIds, code);
        });
}

void KvPimKit::sendMessageToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId,
                                 std::optional<KvPimSendMessageOptions> options, Completion done) {
    auto const client = impl();  // the completion that a long message gets at once may drop this object
    auto const target = peerId;
    if (client->stateManager->login)
        reportTooLong(message.get(), KvPimPeerMessageErrorTooLong, done, client->failures.handle(),
                      "sendMessageToPeer");
    KvPayloadMemory memory;
    client->requests.request(
        kSendMessage, true,
        [&] {
            auto payload = memory.payload();
            auto content = contentOf(message.get(), payload);
            bool const offline = options && options->enableOfflineMessaging;
            payload.values.emplace_back(json::object(
                {{"targetUserId", target}, {"content", std::move(content)}, {"option", {{"offline", offline}}}},
                payload.values.storage()));
            return payload;
        },
        completing(std::move(done)));
}

}  // namespace kv
