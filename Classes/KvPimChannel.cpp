#include "Classes/KvPimChannel.h"

#include "Classes/Catagory/KvDate.h"
#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvCollections.h"
#include "Classes/Internal/KvDelegateCheck.h"
#include "Classes/Internal/KvMessageContent.h"
#include "Classes/Internal/KvPimChannelTell.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/Internal/KvThreadCheck.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "SocketIO/SocketIOClient.h"

#include <cassert>

namespace kv {
namespace json = boost::json;
namespace {

constexpr KvOperation kJoin{
    {.command = "join",
     .codes = KvCodesOf<KvPimJoinChannelErrorCode>{.noAck = KvPimJoinChannelErrorTimeout,
                                                   .tooManyRequests = std::nullopt,
                                                   .other = KvPimJoinChannelErrorFailure,
                                                   .passed = {{{3, KvPimJoinChannelErrorInvalidArgument},
                                                               {5, KvPimJoinChannelErrorServer5},
                                                               {6, KvPimJoinChannelErrorServer6}}}},
     .invalidArgument = KvPimJoinChannelErrorInvalidArgument}};
// Coarser than the join's on purpose: a leave that nobody answered is just a failed one.
constexpr KvOperation kLeave{
    {.command = "leave",
     .codes = KvCodesOf<KvPimLeaveChannelErrorCode>{.noAck = std::nullopt,
                                                    .tooManyRequests = std::nullopt,
                                                    .other = KvPimLeaveChannelErrorFailure,
                                                    .passed = {{{6, KvPimLeaveChannelErrorServer6}}}}}};
constexpr KvOperation kGetMembers{
    {.command = "getChannelMembers",
     .codes = KvCodesOf<KvPimChannelMembersErrorCode>{.noAck = KvPimChannelMembersErrorTimeout,
                                                      .tooManyRequests = KvPimChannelMembersErrorTooManyRequests,
                                                      .other = KvPimChannelMembersErrorFailure,
                                                      .passed = {{{5, KvPimChannelMembersErrorNotInChannel}}}},
     .invalidArgument = KvPimChannelMembersErrorNotInChannel}};
constexpr KvOperation kSendMessage{
    {.command = "sendChannelMessage",
     .codes = KvCodesOf<KvPimChannelMessageErrorCode>{.noAck = KvPimChannelMessageErrorTimeout,
                                                      .tooManyRequests = KvPimChannelMessageErrorTooManyRequests,
                                                      .other = KvPimChannelMessageErrorFailure,
                                                      .passed = {{{4, KvPimChannelMessageErrorTooLong},
                                                                  {5, KvPimChannelMessageErrorNotInChannel}}}},
     .invalidArgument = KvPimChannelMessageErrorNotInChannel}};

}  // namespace

std::shared_ptr<KvPimKitImpl> KvPimChannel::client(char const* call) const {
    auto inside = stateDelegate_.lock();
    if (inside) assertMainThread(*inside->mainQueue, inside->options.checkThreads, call);
    return inside;
}

std::string const& KvPimChannel::channelId() const noexcept { return channelId_; }

bool KvPimChannel::isInChannel() const noexcept { return isInChannel_; }

std::shared_ptr<KvPimChannelDelegate> KvPimChannel::delegate() const noexcept {
    client("delegate");
    return delegate_.lock();
}

void KvPimChannel::setDelegate(std::weak_ptr<KvPimChannelDelegate> delegate) {
    client("setDelegate");
    warnIfGone(delegate);
    delegate_ = std::move(delegate);
}

std::shared_ptr<KvMainQueue> KvPimChannel::mainQueue() const {
    auto const inside = client("mainQueue");
    return inside ? inside->mainQueue : nullptr;
}

template <class Item>
KvStream<Item> KvPimChannel::stream(KvStreamOptions const& options, char const* call) {
    auto const inside = client(call);
    bool const isOver =
        !inside || inside->heldByApplication.expired() ||
        inside->router.findChannel(channelId_).get() != this;  // it was destroyed, or is of another login
    if (isOver) return endedStream<Item>();
    if (!events_) events_ = std::make_shared<KvEventHub<KvPimChannelEvent>>(inside->mainQueue);
    return events_->template open<Item>(options);
}
KvStream<KvPimChannelEvent> KvPimChannel::events(KvStreamOptions options) {
    return stream<KvPimChannelEvent>(options, "events");
}
KvStream<KvPimChannelEvent> KvPimChannel::events() { return events({}); }
KvStream<event::ChannelMessageReceived> KvPimChannel::messages(KvStreamOptions options) {
    return stream<event::ChannelMessageReceived>(options, "messages");
}
KvStream<event::ChannelMessageReceived> KvPimChannel::messages() { return messages({}); }

template <class MakePayload, class Finish>
void KvPimChannel::request(KvOperation const& operation, bool isValid, MakePayload const& payload, Finish finish,
                           char const* call) {
    auto const inside = client(call);
    if (inside) {
        return inside->requests.requestOn(socket_.lock(), operation, isValid, payload, std::move(finish), {}, call);
    }
    KvPimFailures::concluding(
        {}, call, KvPimErrorNotLogin, [] { return failureOfRequest(KvPimErrorNotLogin, nullptr, {}); },
        [&] { finish(KvPimErrorNotLogin, nullptr); });
}

void KvPimChannel::joinWithCompletion(Completion done) {
    auto const report = [id = channelId_, start = currentTimeStamp()](std::int64_t code) {
        auto& reporter = LoganManager::sharedInstance();
        reporter.setTsJoinChannel(start);  // only now: joins overlap
        reporter.joinChannel(code == 0 ? 1 : 0, id, code);
    };
    request(
        kJoin, isValidId(channelId_),
        [&] {
            return payloadOf({{"channelId", channelId_}});
        },
        [weak = weak_from_this(), report, done = std::move(done)](std::int64_t code, KvPimResult const*) {
            auto const self = weak.lock();
            if (code == 0 && self) self->isInChannel_ = true;
            complete(done, code);
            report(code);
            auto const client = self ? self->stateDelegate_.lock() : nullptr;
            if (code == 0 && client) client->stateHelper.channelManager.onJoinChannel(self);
        });
}

void KvPimChannel::leaveWithCompletion(Completion done) {
    auto const report = [id = channelId_, start = currentTimeStamp()](std::int64_t code) {
        auto& reporter = LoganManager::sharedInstance();
        reporter.setTsLeaveChannel(start);
        reporter.leaveChannel(code == 0 ? 1 : 0, id, code);
    };
    auto const inside = client("leaveWithCompletion");
    request(
        kLeave, true,
        [&] {
            return payloadOf({{"channelId", channelId_}});
        },
        [weak = weak_from_this(), change = inside ? inside->stateHelper.leaves.begin() : nullptr, report,
         done = std::move(done)](std::int64_t code, KvPimResult const*) {
            auto const self = weak.lock();
            if (code == 0 && self) {
                self->isInChannel_ = false;
                if (auto const now = self->stateDelegate_.lock()) now->stateHelper.channelManager.onLeaveChannel(*self);
            }
            complete(done, code);
            report(code);
        });
}

void KvPimChannel::getMembersWithCompletion(MembersCompletion done) {
    request(
        kGetMembers, isInChannel_,
        [&] {
            return payloadOf({{"channelId", channelId_}});
        },
        [id = channelId_, done = std::move(done)](std::int64_t code, KvPimResult const* result) {
            std::optional<std::vector<KvPimMember>> members;
            // The server's own "not in the channel" may bring the list all the same.
            if (result != nullptr && (code == 0 || code == KvPimChannelMembersErrorNotInChannel)) {
                members = kv_map(stringsFrom(arrayOf(result->response, "members")),
                                 [&id](std::string const& userId, std::size_t, bool&) {
                                     return KvPimMember{userId, id};
                                 });
            }
            complete(done, members, code);
        });
}

void KvPimChannel::sendMessage(std::shared_ptr<KvPimMessage const> message, std::optional<KvPimSendMessageOptions>,
                               Completion done) {
    auto const self = shared_from_this();  // the completion that a long message gets at once may drop the channel
    auto const session = stateManager_.lock();
    if (session && session->login && isInChannel_) {
        auto const inside = client("sendMessage");
        auto const failures = inside ? inside->failures.handle() : std::weak_ptr<KvPimFailures>();
        reportTooLong(message.get(), KvPimChannelMessageErrorTooLong, done, failures, "sendMessage");
    }
    KvPayloadMemory memory;
    request(
        kSendMessage, isInChannel_,
        [&] {
            auto payload = memory.payload();
            auto content = contentOf(message.get(), payload);
            payload.values.emplace_back(
                json::object({{"channelId", channelId_}, {"content", std::move(content)}, {"option", json::object()}},
                             payload.values.storage()));
            return payload;
        },
        completing(std::move(done)));
}

void KvPimChannel::onMemberJoined(KvPimMember const& member) {
    assert(member.channelId == channelId_ && "it was found by that id");
    KvLog::shared().info("MemberJoined: %@", dictionaryFrom(member));
    tell<&KvPimChannelDelegate::memberJoined>(member);
}

void KvPimChannel::onMemberLeft(KvPimMember const& member, std::int64_t resaon) {
    assert(member.channelId == channelId_ && "it was found by that id");
    KvLog::shared().info("MemberLeft: %@", dictionaryFrom(member));
    tell<&KvPimChannelDelegate::memberLeft>(member);
    tell<&KvPimChannelDelegate::memberLeftWithReason>(member, resaon);
}

void KvPimChannel::onChannelMessageReceived([[maybe_unused]] std::string const& channelId,
                                            std::shared_ptr<KvPimMessage> const& message, KvPimMember const& member) {
    assert(channelId == channelId_ && "it was found by that id");
    KvLog::shared().info("ChannelMessageReceived: %@", dictionaryFrom(member));
    tell<&KvPimChannelDelegate::messageReceived>(message, member);
}

}  // namespace kv
