// What the requests of one client work on. Everything here belongs to the thread that drives the queue.
#pragma once

#include "Binding/Answer.h"
#include "Binding/Events.h"
#include "Binding/Inbox.h"
#include "Binding/InvitationLabels.h"
#include "Classes/KvPimKit.h"

#include <list>
#include <map>
#include <memory>
#include <string>

namespace kv::binding {

struct Session {
    /// The client and the channels hold their delegates weakly.
    struct Channel {
        std::shared_ptr<KvPimChannelDelegate> delegate;
        std::shared_ptr<KvPimChannel> channel;
    };

    std::shared_ptr<KvMainQueue> queue;
    std::shared_ptr<Inbox> inbox;
    std::shared_ptr<OpenOperations> open = std::make_shared<OpenOperations>(0);
    std::shared_ptr<InvitationLabels> invitations = std::make_shared<InvitationLabels>();
    std::shared_ptr<KvPimInvitationDelegate> invitationDelegate;
    std::shared_ptr<KvPimDelegate> delegate;
    std::shared_ptr<KvPimKit> client;
    std::map<std::string, Channel> channels;
    std::list<KvQueueTimer> sleeps;
};

}  // namespace kv::binding
