#include "console/InvitationLabels.h"

#include <algorithm>
#include <ranges>

namespace kv::console {

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
    auto const latestFirst = labels_ | std::views::reverse;
    auto const same = std::ranges::find(latestFirst, invitation, [](auto const& entry) { return entry.second; });
    if (same != latestFirst.end()) return {same->first, true};
    auto const alike = std::ranges::find_if(latestFirst, [&](auto const& entry) {
        return entry.second->inviter == invitation->inviter && entry.second->invitee == invitation->invitee;
    });
    return alike == latestFirst.end() ? Match{} : Match{alike->first, false};
}

}  // namespace kv::console
