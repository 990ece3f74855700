// The user's own attributes, and the attributes of one user read once.
#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/Utils/Logan/LoganManager.h"

namespace kv {
namespace {

// ---- The user's own. Only set and add-or-update let the server's 4 through.

constexpr KvCodesOf<KvPimLocalUserAttributesErrorCode> kWriteCodes{
    .noAck = KvPimLocalUserAttributesErrorTimeout,
    .tooManyRequests = KvPimLocalUserAttributesErrorTooManyRequests,
    .other = KvPimLocalUserAttributesErrorFailure,
    .passed = {{{4, KvPimLocalUserAttributesErrorServer4}}}};
constexpr KvCodesOf<KvPimLocalUserAttributesErrorCode> kRemoveCodes{
    .noAck = KvPimLocalUserAttributesErrorTimeout,
    .tooManyRequests = KvPimLocalUserAttributesErrorTooManyRequests,
    .other = KvPimLocalUserAttributesErrorFailure};

constexpr KvOperation kSet{
    {.command = "setLocalUserAttributes",
     .codes = kWriteCodes,
     .invalidArgument = KvPimLocalUserAttributesErrorInvalidArgument,
     .logLine = "set user attributes: %@",
     .report = {KvReport::About::user, KvLoganActionStringSet, "-[KvPimKit setLocalUserAttributes:completion:]"}}};
constexpr KvOperation kAddOrUpdate{{.command = "addOrUpdateLocalUserAttributes",
                                    .codes = kWriteCodes,
                                    .invalidArgument = KvPimLocalUserAttributesErrorInvalidArgument,
                                    .logLine = "add user attributes: %@",
                                    .report = {KvReport::About::user, KvLoganActionStringUpdate,
                                               "-[KvPimKit addOrUpdateLocalUserAttributes:completion:]"}}};
constexpr KvOperation kDelete{{.command = "deleteLocalUserAttributesByKeys",
                               .codes = kRemoveCodes,
                               .invalidArgument = KvPimLocalUserAttributesErrorInvalidArgument,
                               .logLine = "delete user attributes: %@",
                               .report = {KvReport::About::user, KvLoganActionStringDelete,
                                          "-[KvPimKit deleteLocalUserAttributesByKeys:completion:]"}}};
constexpr KvOperation kClear{{.command = "clearLocalUserAttributes",
                              .codes = kRemoveCodes,
                              .logLine = "clear user attributes",
                              .report = {KvReport::About::user, KvLoganActionStringDelete,
                                         "-[KvPimKit clearLocalUserAttributesWithCompletion:]"},
                              .timeout = std::chrono::seconds(10)}};

// ---- Anybody's

constexpr KvCodesOf<KvPimUserAttributesErrorCode> kReadCodes{.noAck = KvPimUserAttributesErrorTimeout,
                                                             .tooManyRequests = KvPimUserAttributesErrorTooManyRequests,
                                                             .other = KvPimUserAttributesErrorFailure,
                                                             .passed = {{{6, KvPimUserAttributesErrorServer6}}}};

constexpr KvOperation kGet{
    {.command = "getUserAttributes",
     .codes = kReadCodes,
     .invalidArgument = KvPimUserAttributesErrorInvalidArgument,
     .logLine = "get user attributes: %@",
     .report = {KvReport::About::user, KvLoganActionStringGet, "-[KvPimKit getUserAttributes:completion:]"}}};
constexpr KvOperation kGetByKeys{
    {.command = "getUserAttributesByKeys",
     .codes = kReadCodes,
     .invalidArgument = KvPimUserAttributesErrorInvalidArgument,
     .logLine = "get user attributes: %@",
     .report = {KvReport::About::user, KvLoganActionStringGet, "-[KvPimKit getUserAttributes:byKeys:completion:]"}}};

auto readingUser(std::string const& userId, KvPimKit::UserAttributesCompletion done) {
    return [userId, done = std::move(done)](std::int64_t code, KvPimResult const* result) {
        std::optional<std::vector<KvPimAttribute>> attributes;
        if (code == 0) attributes = attributesFrom(objectOf(result->response, "attributes"));
        complete(done, attributes, userId, code);
    };
}

}  // namespace

void KvPimKit::setLocalUserAttributes(std::vector<KvPimAttribute> const& attributes, Completion done) {
    impl()->requests.request(
        kSet, !attributes.empty(),
        [&] {
            return payloadOf({{"attributes", attributeMapOf(attributes)}});
        },
        impl()->requests.recording(&KvPimStateHelper::attributeWrites, std::move(done),
                                   [sent = storedAttributesOf(attributes)](KvPimStateHelper& state) {
                                       state.localUserAttributes.setLocalUserAttributes(sent);
                                   }));
}

void KvPimKit::addOrUpdateLocalUserAttributes(std::vector<KvPimAttribute> const& attributes, Completion done) {
    impl()->requests.request(
        kAddOrUpdate, !attributes.empty(),
        [&] {
            return payloadOf({{"attributes", attributeMapOf(attributes)}});
        },
        impl()->requests.recording(&KvPimStateHelper::attributeWrites, std::move(done),
                                   [sent = storedAttributesOf(attributes)](KvPimStateHelper& state) {
                                       state.localUserAttributes.addOrUpdateLocalUserAttributes(sent);
                                   }));
}

void KvPimKit::deleteLocalUserAttributesByKeys(std::vector<std::string> const& keys, Completion done) {
    impl()->requests.request(
        kDelete, !keys.empty(),
        [&] {
            return payloadOf({{"attributeKeys", stringsOf(keys)}});
        },
        impl()->requests.recording(
            &KvPimStateHelper::attributeWrites, std::move(done),
            [keys](KvPimStateHelper& state) { state.localUserAttributes.deleteLocalUserAttributesByKeys(keys); }));
}

void KvPimKit::clearLocalUserAttributesWithCompletion(Completion done) {
    impl()->requests.request(
        kClear, true, [] { return payloadOf({}); },
        impl()->requests.recording(&KvPimStateHelper::attributeWrites, std::move(done), [](KvPimStateHelper& state) {
            state.localUserAttributes.clearLocalUserAttributes();
        }));
}

void KvPimKit::getUserAttributes(std::string const& userId, UserAttributesCompletion done) {
    impl()->requests.request(
        kGet, isValidId(userId),
        [&] {
            return payloadOf({{"userId", userId}});
        },
        readingUser(userId, std::move(done)));
}

void KvPimKit::getUserAttributesByKeys(std::string const& userId, std::vector<std::string> const& keys,
                                       UserAttributesCompletion done) {
    impl()->requests.request(
        kGetByKeys, isValidId(userId) && !keys.empty(),
        [&] {
            return payloadOf({{"userId", userId}, {"attributeKeys", stringsOf(keys)}});
        },
        readingUser(userId, std::move(done)));
}

}  // namespace kv
