// What the library tells its delegates, as messages.
#pragma once

#include "Binding/Inbox.h"
#include "Binding/InvitationLabels.h"
#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kv::binding {

/// The callbacks that a delegate implements; absent: all of them.
using CallbackNames = std::optional<std::vector<std::string>>;

/// An event that there is: what it is called, and the names of its fields with spaces between.
struct EventRow {
    std::string name;
    std::string_view callback, fields;
};

/// Who implements it.
enum class DelegateKind { client, channel, invitation };
std::vector<EventRow> eventsOf(DelegateKind kind);
/// Throws BadRequest when a name is not the name of a callback.
void checkCallbacks(DelegateKind kind, CallbackNames const& names);

// Names that are none of a callback are passed over.
std::shared_ptr<KvPimDelegate> makeClientDelegate(std::shared_ptr<Inbox> inbox, CallbackNames const& names);
std::shared_ptr<KvPimChannelDelegate> makeChannelDelegate(std::shared_ptr<Inbox> inbox, CallbackNames const& names);
/// Implements `invitationFailed` whatever the names are. An invitation that arrives is given its label.
std::shared_ptr<KvPimInvitationDelegate> makeInvitationDelegate(std::shared_ptr<Inbox> inbox,
                                                                std::shared_ptr<InvitationLabels> labels,
                                                                CallbackNames const& names);

}  // namespace kv::binding
