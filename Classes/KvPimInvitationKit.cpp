#include "Classes/KvPimInvitationKit.h"

#include "Classes/Internal/KvDelegateCheck.h"
#include "Classes/Internal/KvEventHub.h"
#include "Classes/Internal/KvPimRequests.h"
#include "Classes/Internal/KvThreadCheck.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/KvPimKit.h"
#include "Classes/Utils/KvInvitationStore.h"
#include "Classes/Utils/KvLog.h"
#include "SocketIO/SocketIOClient.h"

#include <optional>
#include <string_view>

namespace kv {
namespace {

constexpr std::string_view kCommand = "invitationOp";
constexpr std::size_t kMostInfoBytes = 8192;
constexpr std::chrono::milliseconds kRequestTimeout{6000};

bool isTooLong(std::optional<std::string> const& info) { return info && info->size() > kMostInfoBytes; }

/// What an operation is refused with before it is sent, or 0. `localUser` is who alone may do it.
std::int64_t refusalOf(std::string KvPimInvitation::*localUser, KvPimInvitation const* invitation,
                       KvPimStateManager const* session) {
    if (session == nullptr || !session->login) return KvPimErrorNotLogin;
    if (invitation == nullptr || invitation->*localUser != session->userId) return KvPimInvitationErrorNotOwn;
    bool const isAnyTooLong = isTooLong(invitation->requestInfo) || isTooLong(invitation->responseInfo);
    return isAnyTooLong ? std::int64_t{KvPimInvitationErrorTooLong} : 0;
}

// The server's 3 and 4 are the only refusals; any other answer means that it took the invitation.
constexpr KvCodes kCodes = KvCodesOf<KvPimInvitationErrorCode>{
    .noAck = KvPimInvitationErrorTimeout,
    .tooManyRequests = std::nullopt,
    .other = KvPimInvitationErrorOk,
    .passed = {{{3, KvPimInvitationErrorServer3}, {4, KvPimInvitationErrorServer4}}},
    .refusalBeforeSuccess = true};

}  // namespace

struct KvPimInvitationKit::Operation {
    char const* type;
    std::string KvPimInvitation::*localUser;  // who alone may do this
    bool starts;                              // makes the invitation pending, instead of ending it
};

KvPimInvitationKit::~KvPimInvitationKit() { KvInvitationStore::shared().forget(this); }

void KvPimInvitationKit::setDelegate(std::weak_ptr<KvPimInvitationDelegate> delegate) {
    assertMainThread(*mainQueue_, checksThreads_, "setDelegate");
    warnIfGone(delegate);
    delegate_ = std::move(delegate);
}

std::shared_ptr<KvPimInvitationDelegate> KvPimInvitationKit::delegate() const noexcept {
    assertMainThread(*mainQueue_, checksThreads_, "delegate");
    return delegate_.lock();
}

std::shared_ptr<KvMainQueue> const& KvPimInvitationKit::mainQueue() const { return mainQueue_; }

KvStream<KvPimInvitationEvent> KvPimInvitationKit::events(KvStreamOptions options) {
    assertMainThread(*mainQueue_, checksThreads_, "events");
    if (stateManager_.expired()) return endedStream<KvPimInvitationEvent>();
    if (!events_) events_ = std::make_shared<KvEventHub<KvPimInvitationEvent>>(mainQueue_);
    return events_->open<KvPimInvitationEvent>(options);
}
KvStream<KvPimInvitationEvent> KvPimInvitationKit::events() { return events({}); }

void KvPimInvitationKit::sendInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done) {
    run({"send", &KvPimInvitation::inviter, true}, std::move(invitation), std::move(done));
}

void KvPimInvitationKit::cancelInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done) {
    run({"cancel", &KvPimInvitation::inviter, false}, std::move(invitation), std::move(done));
}

void KvPimInvitationKit::acceptInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done) {
    run({"accept", &KvPimInvitation::invitee, false}, std::move(invitation), std::move(done));
}

void KvPimInvitationKit::refuseInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done) {
    run({"refuse", &KvPimInvitation::invitee, false}, std::move(invitation), std::move(done));
}

void KvPimInvitationKit::run(Operation const& operation, std::shared_ptr<KvPimInvitation> invitation, Completion done,
                             char const* call) {
    assertMainThread(*mainQueue_, checksThreads_, call);
    auto const recorder = KvPimFailures::recorderOf(failures_);
    auto const number = recorder ? recorder->nextCall() : 0;
    if (auto const refusal = refusalOf(operation.localUser, invitation.get(), stateManager_.lock().get())) {
        counters_->onEnd(refusal, nullptr);
        if (recorder) recorder->called(number, call, kCommand);
        if (recorder) recorder->ended(number, refusal);
        return KvPimFailures::concluding(
            failures_, call, refusal, [&] { return failureOfRequest(refusal, nullptr, {}); },
            [&] { complete(done, refusal); });
    }
    // From here on it is this client's: the other side may live in this process too.
    KvInvitationStore::shared().adopt(*invitation, *this);
    auto payload = payloadOf({{"type", operation.type}, {"invitation", dictionaryFrom(*invitation)}});
    if (recorder) recorder->called(number, call, kCommand, &payload);
    // The kit is held until the answer: it is the target of the timer that an accepted invitation starts.
    auto const timeout = requestTimeout_.count() > 0 ? requestTimeout_ : kRequestTimeout;
    counters_->onRequest();
    emitCommand(*mainQueue_, socket_, kCommand, std::move(payload), timeout,
                [self = shared_from_this(), starts = operation.starts, invitation = std::move(invitation), call, number,
                 timeout, done = std::move(done)](SocketData const& answer) {
                    auto const result = KvPimResult::resultWithArray(answer);
                    auto const code = kCodes.of(result);
                    self->counters_->onEnd(code, &result);
                    if (number != 0) recordEnd(self->failures_, number, code);
                    auto& store = KvInvitationStore::shared();
                    if (starts && code == KvPimInvitationErrorTimeout) invitation->state = KvPimInvitationStateFailed;
                    if (starts && code == 0) {
                        invitation->state = KvPimInvitationStatePending;
                        store.addTimerAndInvitation(invitation, self);
                    } else if (code == 0) {
                        store.removeTimerAndInvitation(*invitation, *self);
                    }
                    KvPimFailures::concluding(
                        self->failures_, call, code, [&] { return failureOfRequest(code, &result, timeout); },
                        [&] { complete(done, code); });
                });
}

// The store's work belongs to the delegate's, or to who listens to the stream: where nobody does, the invitation stays
// as it is.
template <auto Member, class... Arguments>
bool KvPimInvitationKit::tell(Arguments const&... arguments) {
    bool const isTold = tellDelegate<Member>(delegate_.lock(), *this, arguments...);
    auto const streams = events_;
    return (streams && streams->tell<Member>(arguments...)) || isTold;
}

void KvPimInvitationKit::parseInvitation(std::shared_ptr<KvPimInvitation> const& incoming) {
    auto& store = KvInvitationStore::shared();
    auto invitation = store.getInvitation(*incoming, *this);
    if (invitation) {
        invitation->state = incoming->state;
    } else {
        invitation = incoming;
    }
    auto const self = shared_from_this();
    switch (incoming->state) {
        case KvPimInvitationStateFailed:
            return fail(invitation, KvPimInvitationFailedErrorServer);
        case KvPimInvitationStatePending:
            if (tell<&KvPimInvitationDelegate::invitationArrived>(invitation))
                store.addTimerAndInvitation(invitation, self);
            return;
        case KvPimInvitationStateCanceled:
            if (tell<&KvPimInvitationDelegate::invitationCanceled>(invitation))
                store.removeTimerAndInvitation(*invitation, *this);
            return;
        case KvPimInvitationStateAccepted:
            // Unlike all others this one hands over what the notice said, not the object that the application holds.
            if (tell<&KvPimInvitationDelegate::invitationAccept>(incoming))
                store.removeTimerAndInvitation(*invitation, *this);
            return;
        case KvPimInvitationStateRefused:
            if (tell<&KvPimInvitationDelegate::invitationRefused>(invitation))
                store.removeTimerAndInvitation(*invitation, *this);
            return;
        default:
            return;
    }
}

void KvPimInvitationKit::fail(std::shared_ptr<KvPimInvitation> const& invitation, std::int64_t errorCode) {
    if (stateManager_.expired()) return;  // the client is gone; a timer only kept the kit
    auto const self = shared_from_this();
    auto const listener = delegate_.lock();
    if (listener && !listener->invitationFailed)
        KvLog::shared().error("invitationFailed is not implemented: %@", dictionaryFrom(*invitation));
    tell<&KvPimInvitationDelegate::invitationFailed>(invitation, errorCode);
}

}  // namespace kv
