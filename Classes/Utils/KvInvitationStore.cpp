#include "Classes/Utils/KvInvitationStore.h"

#include "Classes/KvPimInvitationKit.h"
#include "Classes/Model/KvPimInvitation.h"
#include "Classes/Utils/KvPimTimer.h"

#include <chrono>

namespace kv {
namespace {

constexpr std::chrono::seconds kExpiry{60};

std::string keyOf(KvPimInvitation const& invitation) {
    return "[" + invitation.invitee + "," + invitation.inviter + "]";
}

}  // namespace

std::shared_ptr<KvPimInvitation> KvPimInvitation::initWithInviter(std::string inviter, std::string invitee) {
    auto invitation = std::make_shared<KvPimInvitation>();
    invitation->inviter = std::move(inviter);
    invitation->invitee = std::move(invitee);
    KvInvitationStore::shared().addInvitation(invitation);
    return invitation;
}

KvInvitationStore& KvInvitationStore::shared() {
    static auto& store = *new KvInvitationStore;  // outlives static clients
    return store;
}

void KvInvitationStore::addInvitation(std::shared_ptr<KvPimInvitation> invitation) {
    auto const key = keyOf(*invitation);
    std::lock_guard lock(mutex_);
    invitationDict_[key].swap(invitation);
}

std::shared_ptr<KvPimInvitation> KvInvitationStore::getInvitation(KvPimInvitation const& invitation) const {
    std::lock_guard lock(mutex_);
    auto const found = invitationDict_.find(keyOf(invitation));
    return found == invitationDict_.end() ? nullptr : found->second;
}

void KvInvitationStore::addTimerAndInvitation(std::shared_ptr<KvPimInvitation> invitation,
                                              std::shared_ptr<KvPimInvitationKit> target) {
    removeTimerAndInvitation(*invitation);
    auto const key = keyOf(*invitation);
    auto const queue = target->mainQueue_;
    auto timer = KvPimTimer::startTimer(queue, kExpiry, [invitation, target = std::move(target)] {
        invitation->state = KvPimInvitationStateFailed;
        target->fail(invitation, KvPimInvitationFailedErrorExpired);
    });
    std::lock_guard lock(mutex_);
    invitationTimerDict_[key].swap(timer);
    invitationDict_[key].swap(invitation);
}

void KvInvitationStore::removeTimerAndInvitation(KvPimInvitation const& invitation) {
    auto const key = keyOf(invitation);
    std::unique_lock lock(mutex_);
    auto const stopped = invitationTimerDict_.extract(key);
    auto const removed = invitationDict_.extract(key);
    lock.unlock();
    if (stopped) stopped.mapped()->stop();
}

void KvInvitationStore::reset() {
    std::unique_lock lock(mutex_);
    auto const timers = std::move(invitationTimerDict_);
    auto const invitations = std::move(invitationDict_);
    invitationTimerDict_.clear();
    invitationDict_.clear();
    lock.unlock();
    for (auto const& [key, timer] : timers) timer->stop();
}

}  // namespace kv
