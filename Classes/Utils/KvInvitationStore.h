// Every live invitation of the process, under the pair of users that it joins, with the timers that end those which
// nobody answers. Shared by all clients and outliving them; locked, since each client may have a thread of its own.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace kv {

class KvPimInvitation;
class KvPimInvitationKit;
class KvPimTimer;

class KvInvitationStore final {
public:
    static KvInvitationStore& shared();

    void addInvitation(std::shared_ptr<KvPimInvitation> invitation);
    /// The invitation between the same two users in the same direction, or null.
    std::shared_ptr<KvPimInvitation> getInvitation(KvPimInvitation const& invitation) const;
    /// Gives the invitation 60 seconds on the kit's queue, in place of any time that it had. When they pass it has
    /// failed, and the kit's delegate is told; the store keeps it.
    void addTimerAndInvitation(std::shared_ptr<KvPimInvitation> invitation, std::shared_ptr<KvPimInvitationKit> target);
    void removeTimerAndInvitation(KvPimInvitation const& invitation);
    /// Forgets everything, without a word to anybody.
    void reset();

private:
    KvInvitationStore() = default;

    mutable std::mutex mutex_;
    // Guarded by mutex_. Nothing of them is destroyed under it.
    std::map<std::string, std::shared_ptr<KvPimInvitation>> invitationDict_;
    std::map<std::string, std::shared_ptr<KvPimTimer>> invitationTimerDict_;
};

}  // namespace kv
