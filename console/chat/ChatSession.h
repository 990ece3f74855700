// One user's chat: what the commands do, and what is shown of what comes in. It belongs to the thread that drives the
// queue.
#pragma once

#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "Classes/Model/KvPimErrors.h"
#include "console/chat/Chat.h"
#include "console/chat/Terminal.h"

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kv::console {

class ChatSession : public std::enable_shared_from_this<ChatSession> {
public:
    ChatSession(ChatOptions const& options, std::shared_ptr<KvMainQueue> queue, Terminal& terminal);

    /// False when no client can be made with these options.
    bool create();
    /// Waits for the outcome; false when it failed or the user gave up.
    bool login();
    /// Carries out one line of input: a command, or a message.
    void carryOut(std::string const& line);
    /// What the last word of this text may become: names of commands, rooms and users that have occurred.
    std::vector<std::string> completions(std::string_view before) const;
    /// Whether a command was not answered yet.
    bool isBusy() const { return openRequests_ > 0; }
    /// Whether the session ended otherwise than by the user's wish.
    bool isLost() const { return isLost_; }
    void logout();

    // The commands; `rest` is what stands behind their name, without blanks around it.
    void join(std::string_view rest);
    void leave(std::string_view rest);
    void who(std::string_view rest);
    void message(std::string_view rest);
    void file(std::string_view rest);
    void status(std::string_view rest);
    void watch(std::string_view rest);
    void set(std::string_view rest);
    void attributes(std::string_view rest);
    void roomAttributes(std::string_view rest);
    void invite(std::string_view rest);
    void accept(std::string_view rest);
    void refuse(std::string_view rest);
    void cancel(std::string_view rest);
    void count(std::string_view rest);
    void help(std::string_view rest);
    void quit(std::string_view rest);

private:
    using Invitation = std::shared_ptr<KvPimInvitation>;

    /// A completion that hands its results to `handler` if the session is still there.
    template <class Handler>
    auto whenAnswered(Handler handler) {
        ++openRequests_;
        return [weak = weak_from_this(), handler](auto const&... results) {
            auto const self = weak.lock();
            if (!self) return;
            --self->openRequests_;
            handler(results...);
        };
    }
    /// The same for an operation with nothing but a code: warns when it failed, else does `onSuccess`.
    template <KvPimErrorCode Code, class OnSuccess>
    auto whenDone(std::string what, OnSuccess onSuccess) {
        return whenAnswered([this, what = std::move(what), onSuccess](std::int64_t code) {
            if (code != 0) return warn(what, Code(code));
            onSuccess();
        });
    }

    void implementDelegate();
    void implementRoomDelegate();
    void implementInvitationDelegate();
    void showState(std::int64_t state, std::int64_t reason);
    void showMessage(std::string const& from, std::string const& where, KvPimMessage const& message);
    void showAttributes(std::string const& of, std::vector<KvPimAttribute> const& attributes);
    void notice(std::string_view text);
    void warn(std::string_view text);
    /// What failed, what its code means, and why.
    template <KvPimErrorCode Code>
    void warn(std::string_view what, Code code) {
        warnOfFailure(std::string(what).append(": ").append(describe(code)));
    }
    void warnOfFailure(std::string text);

    void leaveRoom();
    void send(std::shared_ptr<KvPimMessage const> message);
    void sendToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId);
    bool isInRoom();

    ChatOptions const options_;
    std::shared_ptr<KvMainQueue> const queue_;
    Terminal& terminal_;
    std::shared_ptr<KvPimDelegate> const delegate_ = std::make_shared<KvPimDelegate>();
    std::shared_ptr<KvPimChannelDelegate> const roomDelegate_ = std::make_shared<KvPimChannelDelegate>();
    std::shared_ptr<KvPimInvitationDelegate> const invitationDelegate_ = std::make_shared<KvPimInvitationDelegate>();
    std::shared_ptr<KvPimKit> client_;
    std::shared_ptr<KvPimChannel> room_;   // null outside of a room
    std::string lastPeer_;                 // whom plain lines go to outside of a room
    Invitation incoming_, outgoing_;       // the latest of each
    std::set<std::string> rooms_, users_;  // that have occurred
    int openRequests_ = 0;
    bool isLost_ = false;
};

}  // namespace kv::console
