#include "Classes/Utils/KvInvitationStore.h"

#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "Classes/Model/KvPimInvitation.h"
#include "Classes/Utils/KvPimTimer.h"

#include <chrono>
#include <utility>

namespace kv {
namespace {

constexpr std::chrono::seconds kExpiry{60};

std::string pairOf(KvPimInvitation const& invitation) {
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
    auto const pair = pairOf(*invitation);
    std::lock_guard lock(mutex_);
    made_[std::this_thread::get_id()][pair].swap(invitation);
}

void KvInvitationStore::adopt(KvPimInvitation const& invitation, KvPimInvitationKit const& kit) {
    auto const pair = pairOf(invitation);
    auto const session = kit.stateManager_.lock();
    bool const isInviter = session && session->userId == invitation.inviter;
    std::shared_ptr<KvPimInvitation> replaced;
    std::lock_guard lock(mutex_);
    auto const here = made_.find(std::this_thread::get_id());
    if (here == made_.end() || !here->second.contains(pair)) return;
    auto& own = clients_[&kit].invitationDict;
    if (!isInviter && own.contains(pair)) return;
    replaced = std::exchange(own[pair], here->second.extract(pair).mapped());
    if (here->second.empty()) made_.erase(here);
}

std::shared_ptr<KvPimInvitation> KvInvitationStore::getInvitation(KvPimInvitation const& invitation,
                                                                  KvPimInvitationKit const& kit) {
    adopt(invitation, kit);
    std::lock_guard lock(mutex_);
    auto const& own = clients_[&kit].invitationDict;
    auto const found = own.find(pairOf(invitation));
    return found == own.end() ? nullptr : found->second;
}

void KvInvitationStore::addTimerAndInvitation(std::shared_ptr<KvPimInvitation> invitation,
                                              std::shared_ptr<KvPimInvitationKit> target) {
    removeTimerAndInvitation(*invitation, *target);
    auto const pair = pairOf(*invitation);
    auto* const kit = target.get();
    auto timer = KvPimTimer::startTimer(*kit->mainQueue_, kExpiry, [invitation, target = std::move(target)] {
        invitation->state = KvPimInvitationStateFailed;
        target->fail(invitation, KvPimInvitationFailedErrorExpired);
    });
    std::lock_guard lock(mutex_);
    auto& own = clients_[kit];
    own.invitationTimerDict[pair].swap(timer);
    own.invitationDict[pair].swap(invitation);
}

void KvInvitationStore::removeTimerAndInvitation(KvPimInvitation const& invitation, KvPimInvitationKit const& kit) {
    adopt(invitation, kit);
    auto const pair = pairOf(invitation);
    std::unique_lock lock(mutex_);
    auto& own = clients_[&kit];
    auto const stopped = own.invitationTimerDict.extract(pair);
    auto const removed = own.invitationDict.extract(pair);
    lock.unlock();
    if (stopped) stopped.mapped()->stop();
}

void KvInvitationStore::reset(KvPimInvitationKit const* kit) {
    std::unique_lock lock(mutex_);
    auto const made = made_.extract(std::this_thread::get_id());
    lock.unlock();
    forget(kit);
}

void KvInvitationStore::forget(KvPimInvitationKit const* kit) {
    std::unique_lock lock(mutex_);
    auto const entries = clients_.extract(kit);
    lock.unlock();
    if (!entries) return;
    for (auto const& [pair, timer] : entries.mapped().invitationTimerDict) timer->stop();
}

}  // namespace kv
