#include "Binding/InvitationLabels.h"

#include <algorithm>

namespace kv::binding {

void InvitationLabels::set(std::string const& label, std::shared_ptr<KvPimInvitation> invitation) {
    std::erase_if(labels_, [&](auto const& entry) { return entry.first == label; });
    labels_.emplace_back(label, std::move(invitation));
}

std::shared_ptr<KvPimInvitation> InvitationLabels::find(std::string_view label) const {
    auto const found =
        std::ranges::find(labels_, label, [](auto const& entry) { return std::string_view(entry.first); });
    return found == labels_.end() ? nullptr : found->second;
}

InvitationLabels::Match InvitationLabels::match(std::shared_ptr<KvPimInvitation> const& invitation) const {
    auto const same =
        std::find_if(labels_.rbegin(), labels_.rend(), [&](auto const& entry) { return entry.second == invitation; });
    if (same != labels_.rend()) return {same->first, true};
    auto const alike = std::find_if(labels_.rbegin(), labels_.rend(), [&](auto const& entry) {
        return entry.second->inviter == invitation->inviter && entry.second->invitee == invitation->invitee;
    });
    return alike == labels_.rend() ? Match{} : Match{alike->first, false};
}

}  // namespace kv::binding
