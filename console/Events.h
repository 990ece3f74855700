// What the library tells its delegates, as lines of output.
#pragma once

#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "console/InvitationLabels.h"
#include "console/Output.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kv::console {

/// The callbacks that a delegate implements; absent: all of them.
using CallbackNames = std::optional<std::vector<std::string>>;

// Each throws BadLine when a name is not the name of a callback.
std::shared_ptr<KvPimDelegate> makeClientDelegate(std::shared_ptr<Output> output, CallbackNames const& names);
std::shared_ptr<KvPimChannelDelegate> makeChannelDelegate(std::shared_ptr<Output> output, CallbackNames const& names);
/// Implements `invitationFailed` whatever the names are. An invitation that arrives is given its label.
std::shared_ptr<KvPimInvitationDelegate> makeInvitationDelegate(std::shared_ptr<Output> output,
                                                                std::shared_ptr<InvitationLabels> labels,
                                                                CallbackNames const& names);

}  // namespace kv::console
