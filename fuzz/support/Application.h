// An application that uses all of the library and believes nothing that it is told: it reads every field, counts how
// often its completions are called, and may do something drastic inside any callback.
#pragma once

#include "Classes/KvPimAwait.h"
#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kv::fuzz {

class Application {
public:
    /// How often the completion of something that was begun may be called, and how often it was.
    struct Begun {
        int least, most;
        int calls = 0;
    };

    Application();
    Application(Application const&) = delete;
    Application& operator=(Application const&) = delete;

    KvMainQueue& queue() { return *queue_; }
    /// Begins the operation of this letter (see Application.cpp), with `text` wherever it takes one.
    void begin(char letter, std::string const& text);
    /// The next callbacks begin the operations of these letters: up to the first comma the next one, and so on.
    void doInNextCallbacks(std::string_view letters) { inCallbacks_ = letters; }
    /// Whether a callback is still to come that does something.
    bool awaitsCallback() const { return !inCallbacks_.empty(); }
    void onCallback();
    /// Lets all the time pass that anything may take, and requires that everything that was begun has ended.
    void finish();

    std::shared_ptr<KvPimKit> kit;  // null once it was destroyed
    std::shared_ptr<KvPimChannel> channel;
    std::shared_ptr<KvPimInvitationKit> invitations;
    std::shared_ptr<KvPimInvitation> invitation;      // the latest
    bool isForgotten = false;                         // the channel: it was destroyed
    std::list<std::pair<KvPending<>, Begun*>> tasks;  // that were spawned

private:
    void makeDelegates();

    std::shared_ptr<KvMainQueue> const queue_ = KvMainQueue::create(KvMainQueue::Time::manual);
    std::shared_ptr<KvPimDelegate> const delegate_ = std::make_shared<KvPimDelegate>();
    std::shared_ptr<KvPimChannelDelegate> const channelDelegate_ = std::make_shared<KvPimChannelDelegate>();
    std::shared_ptr<KvPimInvitationDelegate> const invitationDelegate_ = std::make_shared<KvPimInvitationDelegate>();
    std::list<Begun> begun_;
    std::string inCallbacks_;
};

}  // namespace kv::fuzz
