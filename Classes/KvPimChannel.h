// A channel: a named group of users. Made by `KvPimKit::createChannelWithId`; belongs to the client's main thread.
#pragma once

#include "Classes/Model/KvPimAttribute.h"
#include "Classes/Model/KvPimCodes.h"
#include "Classes/Model/KvPimErrorCodes.h"
#include "Classes/Model/KvPimMember.h"
#include "Classes/Model/KvPimMessage.h"
#include "Platform/KvExport.h"

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kv {

class KvPimChannel;
class KvMainQueue;
class KvPimKitImpl;
class SocketIOClient;
struct KvPimChannelEvent;
struct KvStreamOptions;
template <class T>
class KvPending;
template <class Event>
class KvEventHub;
template <class Event>
class KvStream;
namespace event {
struct ChannelMessageReceived;
}
struct KvOperation;
struct KvPimStateManager;

/// What a channel tells the application, on the client's main queue. Every member is optional. All but `memberCount`
/// and `attributeUpdate` need the channel to be joined, as the server sees it.
struct KvPimChannelDelegate {
    /// Somebody else joined.
    std::function<void(KvPimChannel& channel, KvPimMember const& member)> memberJoined;
    /// Somebody else left.
    std::function<void(KvPimChannel& channel, KvPimMember const& member)> memberLeft;
    /// Called after `memberLeft`, for the same event. `reason`: a KvPimMemberLeftReason.
    std::function<void(KvPimChannel& channel, KvPimMember const& member, std::int64_t reason)> memberLeftWithReason;
    /// A message of `member`; `type()` tells text from raw.
    std::function<void(KvPimChannel& channel, std::shared_ptr<KvPimMessage> message, KvPimMember const& member)>
        messageReceived;
    /// All attributes that the channel has now, after a change that asked for notification.
    std::function<void(KvPimChannel& channel, std::vector<KvPimAttribute> const& attributes)> attributeUpdate;
    /// The number of members; 0 for a channel that the server's notice does not mention.
    std::function<void(KvPimChannel& channel, std::int32_t count)> memberCount;
};

/// A channel that the application created. It may outlive its client, and then answers 102 to everything. One that is
/// kept over a logout does that too; after the next login it is no channel of that login: it hears of nothing, nothing
/// that it is asked for is sent and all ends like a request without an answer, and `isInChannel` stays as it was.
/// `createChannelWithId` makes another one then.
class KV_EXPORT KvPimChannel final : public std::enable_shared_from_this<KvPimChannel> {
public:
    using Completion = std::function<void(std::int64_t errorCode)>;
    using MembersCompletion =
        std::function<void(std::optional<std::vector<KvPimMember>> const& members, std::int64_t errorCode)>;

    /// As the channel was created with.
    std::string const& channelId() const noexcept;
    /// Between a successful join and a successful leave. A lost connection does not change it.
    bool isInChannel() const noexcept;

    /// Who is told of things; null when there is nobody (any more).
    std::shared_ptr<KvPimChannelDelegate> delegate() const noexcept;
    /// Has another one told from now on. It is not owned; one that is gone already is told to the log.
    void setDelegate(std::weak_ptr<KvPimChannelDelegate> delegate);
    /// A delegate that nobody keeps would never hear anything.
    template <class Delegate>
    void setDelegate(std::shared_ptr<Delegate>&& delegate) = delete;

    /// Joins the channel, which the server makes if it is not there. Joining again is for the server to answer. A
    /// joined channel is joined again after a reconnection.
    /// @param done  a KvPimJoinChannelErrorCode.
    void joinWithCompletion(Completion done);
    /// Leaves the channel. @param done a KvPimLeaveChannelErrorCode.
    void leaveWithCompletion(Completion done);
    /// The members, in the server's order.
    /// @param done  a KvPimChannelMembersErrorCode. With the server's own 5 a list comes along.
    void getMembersWithCompletion(MembersCompletion done);
    /// Sends a text to the other members. @param done as below: a KvPimChannelMessageErrorCode.
    template <std::invocable<std::int64_t> Done>
    void sendMessage(std::string text, Done done) {
        sendMessage(std::make_shared<KvPimMessage const>(std::move(text)), std::nullopt, std::move(done));
    }
    /// Sends a message to the other members. @param done as below: a KvPimChannelMessageErrorCode.
    template <std::invocable<std::int64_t> Done>
    void sendMessage(std::shared_ptr<KvPimMessage const> message, Done done) {
        sendMessage(std::move(message), std::nullopt, std::move(done));
    }
    /// Sends a message to the other members.
    /// @param message  text, data, or both, each of at most 32,768 bytes.
    /// @param options  have no effect in this version.
    /// @param done     a KvPimChannelMessageErrorCode. A message that is too long is reported with 4 inside the call
    ///     (once for its text, once for its data), is sent all the same, and `done` is called again for the answer.
    void sendMessage(std::shared_ptr<KvPimMessage const> message, std::optional<KvPimSendMessageOptions> options,
                     Completion done);

    /// @name To be awaited
    /// The operations above, each without its completion (<KvPim/KvPimAwait.h>). A message that is too long is just
    /// that: the server's answer is not waited for.
    /// @{
    /// Awaited: `joinWithCompletion`.
    KvPending<void> join();
    /// Awaited: `leaveWithCompletion`.
    KvPending<void> leave();
    /// Awaited: `getMembersWithCompletion`.
    KvPending<std::vector<KvPimMember>> getMembers();
    /// Awaited: `sendMessage`.
    KvPending<void> sendMessage(std::shared_ptr<KvPimMessage const> message);
    /// Awaited: `sendMessage`.
    KvPending<void> sendMessage(std::string text);
    /// @}

    /// What the delegate hears, as a stream, beside the delegate. Over when the channel is
    /// destroyed, at a logout, and when the client ends.
    KvStream<KvPimChannelEvent> events();
    /// The same, keeping as much as the options say.
    KvStream<KvPimChannelEvent> events(KvStreamOptions options);
    /// The messages of others alone.
    KvStream<event::ChannelMessageReceived> messages();
    /// The same, keeping as much as the options say.
    KvStream<event::ChannelMessageReceived> messages(KvStreamOptions options);

    /// The queue on which the channel lives, its client's; null when the client is gone.
    std::shared_ptr<KvMainQueue> mainQueue() const;

private:
    friend class KvPimRouter;
    KvPimChannel() = default;
    /// Its client, or null when that is gone. Ends the program where `KvPimOptions::checkThreads` says so.
    std::shared_ptr<KvPimKitImpl> client(char const* call) const;

    template <class MakePayload, class Finish>
    void request(KvOperation const& operation, bool isValid, MakePayload const& payload, Finish finish,
                 char const* call = __builtin_FUNCTION());
    template <class Item>
    KvStream<Item> stream(KvStreamOptions const& options, char const* call);
    template <auto Member, class... Arguments>
    bool tell(Arguments const&... arguments);
    void onMemberJoined(KvPimMember const& member);
    void onMemberLeft(KvPimMember const& member, std::int64_t resaon);
    void onChannelMessageReceived(std::string const& channelId, std::shared_ptr<KvPimMessage> const& message,
                                  KvPimMember const& member);

    bool isInChannel_ = false;
    std::weak_ptr<KvPimChannelDelegate> delegate_;
    std::shared_ptr<KvEventHub<KvPimChannelEvent>> events_;  // null before the first stream
    std::string channelId_;
    std::weak_ptr<KvPimStateManager const> stateManager_;
    std::weak_ptr<SocketIOClient> socket_;
    std::weak_ptr<KvPimKitImpl> stateDelegate_;
};

}  // namespace kv
