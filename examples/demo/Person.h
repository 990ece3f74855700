// One user of the demonstration: a real client of the library, and all that reached it.
#pragma once

#include "Stage.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include <KvPim/KvPimChannel.h>
#include <KvPim/KvPimInvitationKit.h>
#include <KvPim/KvPimKit.h>

namespace demo {

class Person {
public:
    using Done = std::function<void(std::int64_t)>;

    /// Throws Failure when the options are not acceptable.
    Person(Stage const& stage, std::string name, std::string const& appId, kv::KvPimOptions const& options);
    Person(Person const&) = delete;
    Person& operator=(Person const&) = delete;

    std::string const& name() const { return name_; }
    kv::KvPimKit& client() { return *client_; }
    kv::KvPimInvitationKit& invitations() { return *client_->getPimInvitationKit(); }
    kv::KvPimChannel& channel() { return *channel_; }
    /// The invitation that arrived last; null if none did.
    std::shared_ptr<kv::KvPimInvitation> const& invitation() const { return invitation_; }

    void logIn();
    void enter(std::string const& channelId);
    /// Starts an operation and waits for its success. Throws Failure otherwise.
    void does(std::string const& what, std::function<void(Done const&)> const& start);
    /// Waits until this reached the user, word for word. Throws Failure when it does not.
    void hears(std::string const& what);

private:
    void implementDelegates();
    void onEvent(std::string const& what);

    Stage const& stage_;
    std::string const name_;
    std::deque<std::string> heard_;  // and not yet asked for
    std::shared_ptr<kv::KvPimDelegate> const delegate_ = std::make_shared<kv::KvPimDelegate>();
    std::shared_ptr<kv::KvPimChannelDelegate> const channelDelegate_ = std::make_shared<kv::KvPimChannelDelegate>();
    std::shared_ptr<kv::KvPimInvitationDelegate> const invitationDelegate_ =
        std::make_shared<kv::KvPimInvitationDelegate>();
    std::shared_ptr<kv::KvPimInvitation> invitation_;
    std::shared_ptr<kv::KvPimChannel> channel_;
    std::shared_ptr<kv::KvPimKit> client_;
};

/// What a message looks like in the transcript: its text, or size and checksum of its bytes.
std::string describe(kv::KvPimMessage const& message);

}  // namespace demo
