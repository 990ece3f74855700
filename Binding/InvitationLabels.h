// The invitations of a session by the labels that its user knows them by.
#pragma once

#include "Classes/Model/KvPimInvitation.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv::binding {

class InvitationLabels {
public:
    struct Match {
        std::optional<std::string> label;
        bool isSameObject = false;
    };

    /// Gives the label to this invitation, and takes it from the one that had it.
    void set(std::string const& label, std::shared_ptr<KvPimInvitation> invitation);
    /// Null when there is no such label.
    std::shared_ptr<KvPimInvitation> find(std::string_view label) const;
    /// The label of this very object, else the one of an invitation between the same two users; the latest counts.
    Match match(std::shared_ptr<KvPimInvitation> const& invitation) const;

private:
    std::vector<std::pair<std::string, std::shared_ptr<KvPimInvitation>>> labels_;  // latest last
};

}  // namespace kv::binding
