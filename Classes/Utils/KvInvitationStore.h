// Every live invitation of the process, under the pair of users that it joins, with the timers that end those which
// nobody answers. One store for all clients, and each has its own in it: the two sides of an invitation may live in one
// process, on a thread each, and share no object. Locked for that reason. It knows the kit
// itself, whose clock runs out for an invitation and whose delegate is told.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

namespace kv {

class KvPimInvitation;
class KvPimInvitationKit;
class KvPimTimer;

class KvInvitationStore final {
public:
    static KvInvitationStore& shared();

    /// Registers an invitation that was just made. It belongs to no client until one of this thread adopts it.
    void addInvitation(std::shared_ptr<KvPimInvitation> invitation);
    /// Gives the client what this thread made between the same two users, if there is something, in place of what it
    /// had. An invitee's client keeps what it had: what was made meanwhile is the inviter's, who may live here too.
    void adopt(KvPimInvitation const& invitation, KvPimInvitationKit const& kit);
    /// The client's invitation between the same two users in the same direction, or null. Adopts.
    std::shared_ptr<KvPimInvitation> getInvitation(KvPimInvitation const& invitation, KvPimInvitationKit const& kit);
    /// Gives the invitation 60 seconds on the kit's queue, in place of any time that it had. When they pass it has
    /// failed, and the kit's delegate is told; the store keeps it.
    void addTimerAndInvitation(std::shared_ptr<KvPimInvitation> invitation, std::shared_ptr<KvPimInvitationKit> target);
    void removeTimerAndInvitation(KvPimInvitation const& invitation, KvPimInvitationKit const& kit);
    /// Forgets all of a client, telling nobody, and what this thread made that no client has adopted. Null
    /// stands for a client without a kit.
    void reset(KvPimInvitationKit const* kit);
    /// Forgets all of a kit that ends.
    void forget(KvPimInvitationKit const* kit);

private:
    using Invitations = std::map<std::string, std::shared_ptr<KvPimInvitation>>;
    struct Entries {
        Invitations invitationDict;
        std::map<std::string, std::shared_ptr<KvPimTimer>> invitationTimerDict;
    };

    KvInvitationStore() = default;

    std::mutex mutex_;
    // Guarded by mutex_. Nothing of them is destroyed under it.
    std::unordered_map<KvPimInvitationKit const*, Entries> clients_;
    std::map<std::thread::id, Invitations> made_;
};

}  // namespace kv
