// What the lines of one console session work on. Everything here belongs to the thread that drives the queue.
#pragma once

#include "Classes/KvPimKit.h"
#include "console/Answer.h"
#include "console/Events.h"
#include "console/InvitationLabels.h"
#include "console/Output.h"

#include <map>
#include <memory>
#include <string>

namespace kv::console {

struct Session {
    /// The client and the channels hold their delegates weakly.
    struct Channel {
        std::shared_ptr<KvPimChannelDelegate> delegate;
        std::shared_ptr<KvPimChannel> channel;
    };

    std::shared_ptr<KvMainQueue> queue = KvMainQueue::main();
    std::shared_ptr<Output> output = std::make_shared<Output>();
    std::shared_ptr<OpenOperations> open = std::make_shared<OpenOperations>();
    std::shared_ptr<InvitationLabels> invitations = std::make_shared<InvitationLabels>();
    std::shared_ptr<KvPimInvitationDelegate> invitationDelegate;
    std::shared_ptr<KvPimDelegate> delegate;
    std::shared_ptr<KvPimKit> client;
    std::map<std::string, Channel> channels;
    /// While it runs no line is read.
    KvQueueTimer sleep;
    bool isQuit = false;
};

}  // namespace kv::console
