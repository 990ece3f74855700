// A client's channels: the objects, their attributes, their member counts.
#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvDelegateCheck.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/KvPimChannel.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "SocketIO/SocketIOClient.h"

namespace kv {
namespace json = boost::json;
namespace {

// ---- Writes. A refusal's text beats even a result of 0 here.

constexpr KvCodesOf<KvPimChannelAttributesErrorCode> kWriteCodes{
    .noAck = KvPimChannelAttributesErrorTimeout,
    .tooManyRequests = KvPimChannelAttributesErrorTooManyRequests,
    .other = KvPimChannelAttributesErrorFailure,
    .passed = {{{4, KvPimChannelAttributesErrorServer4}}},
    .refusalBeforeSuccess = true};

constexpr KvOperationRow write(std::string_view command, std::string_view logLine, std::string_view action,
                               std::string_view interface) {
    return {.command = command,
            .codes = kWriteCodes,
            .invalidArgument = KvPimChannelAttributesErrorInvalidArgument,
            .logLine = logLine,
            .report = {KvReport::About::channel, action, interface}};
}

constexpr KvOperation kSet = write("setChannelAttributes", "set channel attributes: %@", KvLoganActionStringSet,
                                   "-[KvPimKit setChannel:attributes:options:completion:]");
constexpr KvOperation kAddOrUpdate =
    write("addOrUpdateChannelAttributes", "add or update channel attributes: %@", KvLoganActionStringUpdate,
          "-[KvPimKit addOrUpdateChannel:attributes:options:completion:]");
constexpr KvOperation kDelete =
    write("deleteChannelAttributesByKeys", "delete channel attributes: %@", KvLoganActionStringDelete,
          "-[KvPimKit deleteChannelAttributes:byKeys:options:completion:]");
constexpr KvOperation kClear =
    write("clearChannelAttributes", "clear channel attributes: %@", KvLoganActionStringDelete,
          "-[KvPimKit clearChannelAttributes:options:completion:]");

// ---- Reads. The one by keys lets the server's 3 through.

constexpr KvCodesOf<KvPimChannelAttributesErrorCode> kReadCodes{
    .noAck = KvPimChannelAttributesErrorTimeout,
    .tooManyRequests = KvPimChannelAttributesErrorTooManyRequests,
    .other = KvPimChannelAttributesErrorFailure};
constexpr KvCodesOf<KvPimChannelAttributesErrorCode> kReadByKeysCodes{
    .noAck = KvPimChannelAttributesErrorTimeout,
    .tooManyRequests = KvPimChannelAttributesErrorTooManyRequests,
    .other = KvPimChannelAttributesErrorFailure,
    .passed = {{{3, KvPimChannelAttributesErrorInvalidArgument}}}};

constexpr KvOperation kGet{
    {.command = "getChannelAttributes",
     .codes = kReadCodes,
     .invalidArgument = KvPimChannelAttributesErrorInvalidArgument,
     .logLine = "get channel attributes: %@",
     // An invalid id is reported as if the client were not logged in, whatever the completion hears.
     .report = {.about = KvReport::About::channel,
                .action = KvLoganActionStringGet,
                .interface = "-[KvPimKit getChannelAttributes:completion:]",
                .codeOfInvalidArgument = KvPimErrorNotLogin}}};
constexpr KvOperation kGetByKeys{{.command = "getChannelAttributesByKeys",
                                  .codes = kReadByKeysCodes,
                                  .invalidArgument = KvPimChannelAttributesErrorInvalidArgument,
                                  .logLine = "get channel attributes: %@",
                                  .report = {KvReport::About::channel, KvLoganActionStringGet,
                                             "-[KvPimKit getChannelAttributes:byKeys:completion:]"}}};

// ---- Member counts. Too many channels are refused with a code of their own.

constexpr KvOperationRow memberCount(std::int64_t invalidArgument) {
    return {.command = "getChannelMemberCount",
            .codes = KvCodesOf<KvPimMemberCountErrorCode>{.noAck = KvPimMemberCountErrorTimeout,
                                                          .tooManyRequests = KvPimMemberCountErrorTooManyRequests,
                                                          .other = KvPimMemberCountErrorFailure,
                                                          .passed = {{{2, KvPimMemberCountErrorInvalidArgument},
                                                                      {5, KvPimMemberCountErrorTooManyChannels}}}},
            .invalidArgument = invalidArgument};
}

constexpr KvOperation kGetMemberCount = memberCount(KvPimMemberCountErrorInvalidArgument);
constexpr KvOperation kGetTooManyMemberCounts = memberCount(KvPimMemberCountErrorTooManyChannels);
constexpr std::size_t kMostCountedChannels = 32;

SocketItems writePayload(std::string const& channelId, KvPimChannelAttributeOptions options, char const* key = nullptr,
                         json::value what = nullptr) {
    json::object payload{{"channelId", channelId}};
    if (key != nullptr) payload[key] = std::move(what);
    payload["option"] = {{"notify", options.enableNotificationToChannelMembers}};
    return payloadOf(std::move(payload));
}

auto readingAttributes(KvPimKit::AttributesCompletion done) {
    return [done = std::move(done)](std::int64_t code, KvPimResult const* result) {
        std::optional<std::vector<KvPimAttribute>> attributes;
        if (code == 0) attributes = attributesFrom(objectOf(result->response, "attributes"));
        complete(done, attributes, code);
    };
}

}  // namespace

std::shared_ptr<KvPimChannel> KvPimKit::createChannelWithId(std::string const& channelId,
                                                            std::weak_ptr<KvPimChannelDelegate> delegate) {
    warnIfGone(delegate);
    if (auto const& recorder = impl()->recorder) recorder->called("createChannelWithId", {{"channelId", channelId}});
    auto channel = impl()->router.createChannelWithId(channelId, std::move(delegate));
    if (!channel) KvLog::shared().warn("no channel: %@ is not a valid id", channelId);
    return channel;
}

std::shared_ptr<KvPimChannel> KvPimKit::createChannelWithId(std::string const& channelId, std::nullptr_t) {
    return createChannelWithId(channelId, std::weak_ptr<KvPimChannelDelegate>());
}

bool KvPimKit::destroyChannelWithId(std::string const& channelId) {
    if (auto const& recorder = impl()->recorder) recorder->called("destroyChannelWithId", {{"channelId", channelId}});
    return impl()->router.destroyChannelWithId(channelId);
}

void KvPimKit::setChannelAttributes(std::string const& channelId, std::vector<KvPimAttribute> const& attributes,
                                    KvPimChannelAttributeOptions options, Completion done) {
    impl()->requests.request(
        kSet, !attributes.empty() && isValidId(channelId),
        [&] { return writePayload(channelId, options, "attributes", attributeMapOf(attributes)); },
        completing(std::move(done)), channelId);
}

void KvPimKit::addOrUpdateChannelAttributes(std::string const& channelId, std::vector<KvPimAttribute> const& attributes,
                                            KvPimChannelAttributeOptions options, Completion done) {
    impl()->requests.request(
        kAddOrUpdate, !attributes.empty() && isValidId(channelId),
        [&] { return writePayload(channelId, options, "attributes", attributeMapOf(attributes)); },
        completing(std::move(done)), channelId);
}

void KvPimKit::deleteChannelAttributesByKeys(std::string const& channelId, std::vector<std::string> const& keys,
                                             KvPimChannelAttributeOptions options, Completion done) {
    impl()->requests.request(
        kDelete, !keys.empty() && isValidId(channelId),
        [&] { return writePayload(channelId, options, "attributeKeys", stringsOf(keys)); }, completing(std::move(done)),
        channelId);
}

void KvPimKit::clearChannelAttributes(std::string const& channelId, KvPimChannelAttributeOptions options,
                                      Completion done) {
    impl()->requests.request(
        kClear, isValidId(channelId), [&] { return writePayload(channelId, options); }, completing(std::move(done)),
        channelId);
}

void KvPimKit::getChannelAttributes(std::string const& channelId, AttributesCompletion done) {
    impl()->requests.request(
        kGet, isValidId(channelId),
        [&] {
            return payloadOf({{"channelId", channelId}});
        },
        readingAttributes(std::move(done)), channelId);
}

void KvPimKit::getChannelAttributesByKeys(std::string const& channelId, std::vector<std::string> const& keys,
                                          AttributesCompletion done) {
    impl()->requests.request(
        kGetByKeys, !keys.empty() && isValidId(channelId),
        [&] {
            return payloadOf({{"channelId", channelId}, {"attributeKeys", stringsOf(keys)}});
        },
        readingAttributes(std::move(done)), channelId);
}

void KvPimKit::getChannelMemberCount(std::vector<std::string> const& channelIds, CountsCompletion done) {
    bool const isTooMany = channelIds.size() > kMostCountedChannels;
    impl()->requests.request(
        isTooMany ? kGetTooManyMemberCounts : kGetMemberCount,
        !isTooMany && !channelIds.empty() && std::ranges::all_of(channelIds, isValidId),
        [&] {
            KvLog::shared().info("get channel member count: %@", channelIds);  // the ids alone, not the payload
            return payloadOf({{"channelIds", stringsOf(channelIds)}});
        },
        [done = std::move(done)](std::int64_t code, KvPimResult const* result) {
            std::optional<std::vector<KvChannelMemberCount>> counts;
            if (code == 0) {
                counts.emplace();
                if (auto const* map = dictionaryOf(*result, "counts")) {
                    for (auto const& [channelId, count] : *map) counts->push_back({channelId, asInteger32(&count)});
                }
            }
            complete(done, counts, code);
        });
}

}  // namespace kv
