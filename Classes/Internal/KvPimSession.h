// The session of a client, from the login to the logout; a lost connection is part of it. Its life is a loop:
//
//     loginByToken     find a server ---- login -----+
//     loginWithConfig                                v
//     onLoginSuccess   restore, tell (3, 2)  <--- connect <---+
//     onDisconnect     lose                                   |
//                      wait, tell (4, 5) -------- comeBack ---+
//     logoutWithCompletion, from anywhere in the loop: logout
//
// `login`, `comeBack` and `logout` are work items: they take turns, in the order in which they were called for, so a
// logout waits behind an attempt that waits for its time. Nobody's turn lasts while a connection is being made or is
// there: what the server says, a logout, a renewed token and another login may come at any moment then.
#pragma once

#include "Classes/Internal/KvOwedCompletion.h"
#include "Classes/Internal/KvPimDebugInfo.h"
#include "Classes/Internal/KvPimFailures.h"
#include "Classes/Internal/KvPimRestorer.h"
#include "Classes/Internal/KvPimRouter.h"
#include "Classes/Internal/KvPimShared.h"
#include "Classes/KvPimKit.h"
#include "Platform/KvWorkQueue.h"
#include "SocketIO/SocketManager.h"

#include <cstdint>
#include <memory>
#include <string>

#include <boost/json/object.hpp>

namespace kv {

class KvPimSession final : public KvPimPart<KvPimSession> {
public:
    using Completion = KvPimKit::Completion;

    KvPimSession(KvPimShared& client, KvPimRouter& router, KvPimRestorer& restorer, KvPimFailures& failures,
                 std::string apiServer);
    ~KvPimSession();

    void loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done);
    void loginWithConfig(boost::json::object const& config, Completion done);
    void renewToken(std::string const& token, std::int64_t timeStamp, KvPimKit::RenewTokenCompletion const& done);
    void networkChanged();
    void logoutWithCompletion(Completion done);

    std::string const& apiServer() const { return apiServer_; }
    std::string const& brivelServer() const { return brivelServer_; }
    std::int32_t connectIndex() const { return connectIndex_; }
    std::int64_t disconnectReason() const { return disconnectReason_; }
    std::int64_t loginError() const { return loginError_; }
    boost::json::object getDebugInfo() const;

private:
    // ---- The loop
    static KvWork login(std::weak_ptr<KvPimSession> session, boost::json::object config,
                        std::shared_ptr<KvOwedCompletion> owed);
    void onLoginSuccess(SocketData const& data);
    void onDisconnectReason(SocketData const& data);
    void onDisconnect(SocketData const& data);
    static KvWork comeBack(std::weak_ptr<KvPimSession> session, std::shared_ptr<KvSignal> noDelay);
    static KvWork logout(std::weak_ptr<KvPimSession> session, std::int64_t start,
                         std::shared_ptr<KvOwedCompletion> owed);

    // ---- Its steps
    void connect(boost::json::object const& config, Completion done, char const* method);
    void makeSocket(boost::json::object const& config);
    /// The same in place of the present one, whose connection is closed.
    void replaceSocket(boost::json::object const& config);
    void queueComeBack();
    /// An attempt to come back that waits for its time is made at once.
    void makeWaitingAttempt();
    /// A login in progress ends here: its completion is called at a later turn.
    void abandonLogin();
    /// Why the present login fails, as far as its connection knows.
    net::Failure failureOfLogin() const;
    /// What becomes of a session that this side has ended.
    void end();
    /// Every change of the state; returns the one before.
    std::int64_t enter(std::int64_t state);
    /// Tells the delegate of a state, without an event report: (4, 5) and (1, 4) have none. Returns whether it listens.
    bool tellState(std::int64_t state, std::int64_t reason);
    /// The same, and reports it when the delegate listens.
    void tellAndReportState(std::int64_t state, std::int64_t reason);

    KvPimRouter& router_;
    KvPimRestorer& restorer_;
    KvPimFailures& failures_;

    std::string const apiServer_;
    std::string brivelServer_;
    std::unique_ptr<SocketManager> manager_;
    SocketPressure endedPressure_;  // of the sockets before, since the login

    Completion loginBlcok_;                     // of the login in progress
    char const* loginMethod_ = "loginByToken";  // by which it was begun
    net::Failure notFound_{KvFailureStage::discovery, "", "No socket server was looked for yet"};  // why there is none
    std::string refusal_;                                                                          // the server's word
    std::int64_t loginError_ = 0;
    std::int64_t connectStart_ = 0;  // of the connection of the login in progress, a time stamp
    std::int64_t disconnectReason_ = 0;
    std::int64_t toldState_ = 0;             // what the delegate was last told
    std::int32_t connectIndex_ = 0;          // into the table of reconnection delays
    std::weak_ptr<KvSignal> attemptAtOnce_;  // of the attempt that waits

    KvPimDebugInfo debugInfo_;
    KvWorkQueue queue_;
};

}  // namespace kv
