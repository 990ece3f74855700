// A bot that answers whoever writes to it, until SIGINT or SIGTERM. Everybody can see that it is there, and since when;
// it greets again those of its visitors who went away and came back. What happens to its connection it only logs: the
// library restores the connection, the attributes and the subscriptions by itself.
//     bot [API SERVER] [USER]
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <set>

#include <KvPim/KvPimKit.h>
#include <KvPim/KvScope.h>
#include <poll.h>
#include <sys/signalfd.h>

namespace {

constexpr std::chrono::seconds kRetryDelay{3};

class Bot {
public:
    explicit Bot(std::string const& apiServer) {
        kv::KvPimOptions options;
        options.envConfig.apiServer = apiServer;
        client_ = kv::KvPimKit::initWithAppId("demo", delegate_, options);
        // The client calls no delegate once it is gone, so these need no scope.
        delegate_->connectionStateChanged = [this](kv::KvPimKit&, auto state, auto reason) { onState(state, reason); };
        delegate_->messageReceived = [this](kv::KvPimKit&, auto message, auto const& peer) {
            onMessage(*message, peer);
        };
        delegate_->peersOnlineStatusChanged = [this](kv::KvPimKit&, auto const& statuses) {
            for (auto const& status : statuses) onVisitor(status);
        };
    }

    bool isUsable() const { return client_ != nullptr; }

    void logIn(std::string const& user) {
        std::string const token = "0123456789abcdef0123456789abcdef";
        client_->loginByToken(token, std::time(nullptr) * 1000, user,
                              scope_.wrap([this, user](std::int64_t errorCode) { onLogin(user, errorCode); }));
    }

    void logOut() {
        client_->logoutWithCompletion([](std::int64_t) { kv::KvMainQueue::main()->stop(); });
    }

private:
    static void log(char const* what, std::int64_t errorCode = 0) {
        std::printf("bot: %s", what);
        if (errorCode != 0) std::printf(": error %d", static_cast<int>(errorCode));
        std::printf("\n");
        std::fflush(stdout);
    }

    void onLogin(std::string const& user, std::int64_t errorCode) {
        retry_.cancel();
        if (errorCode != 0) {
            log("the login failed", errorCode);
            bool const isForGood = errorCode != kv::KvPimLoginErrorTimeout && errorCode != kv::KvPimLoginErrorUnknown;
            if (isForGood) return;
            // Later, since the client takes no other login within the completion of this one, and only if it is over:
            // an attempt that is slow goes on, and calls its completion again.
            retry_ = kv::KvMainQueue::main()->after(kRetryDelay, scope_.wrap([this, user] {
                if (client_->stateManager().state == kv::KvPimConnectionStateDisconnected) logIn(user);
            }));
            return;
        }
        // The client writes attributes again after a reconnection, so once is enough.
        client_->setLocalUserAttributes({{"kind", "bot"}, {"since", std::to_string(std::time(nullptr))}},
                                        [](std::int64_t error) { log("told everybody that it is here", error); });
    }

    // Told of the first attempt to reconnect and of the one that succeeds, not of those between them.
    void onState(std::int64_t state, std::int64_t reason) {
        if (state == kv::KvPimConnectionStateConnected) log("connected");
        if (state == kv::KvPimConnectionStateReconnecting) log("connection lost, reconnecting");
        if (reason == kv::KvPimConnectionChangeReasonRemoteLogin) log("logged in elsewhere; this one is over");
    }

    void onMessage(kv::KvPimMessage const& message, std::string const& peer) {
        say(peer, message.text ? "You said: " + *message.text : "That were bytes.");
        if (!visitors_.insert(peer).second) return;
        client_->subscribePeersOnlineStatus({peer}, scope_.wrap([this, peer](std::int64_t errorCode) {
            if (errorCode != 0) visitors_.erase(peer);  // the next message tries it again
        }));
    }

    void onVisitor(kv::KvPimPeerOnlineStatus const& status) {
        if (!status.isOnline) {
            away_.insert(status.peerId);
        } else if (away_.erase(status.peerId) != 0) {
            say(status.peerId, "Welcome back!");
        }
    }

    void say(std::string const& peer, std::string text) {
        auto const answer = std::make_shared<kv::KvPimMessage>(std::move(text));
        client_->sendMessageToPeer(answer, peer, std::nullopt,
                                   [](std::int64_t errorCode) { log("answered", errorCode); });
    }

    std::shared_ptr<kv::KvPimDelegate> delegate_ = std::make_shared<kv::KvPimDelegate>();
    std::set<std::string> visitors_, away_;
    std::shared_ptr<kv::KvPimKit> client_;
    kv::KvQueueTimer retry_;
    kv::KvScope scope_;  // ends first: completions that come after the bot then find nothing to do
};

}  // namespace

int main(int argc, char** argv) {
    // Blocked before there are threads, so that the signals come to the descriptor and nowhere else.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    int const signals = signalfd(-1, &ends, SFD_CLOEXEC);

    Bot bot(argc > 1 ? argv[1] : "http://127.0.0.1:8600");
    if (!bot.isUsable()) return 1;
    bot.logIn(argc > 2 ? argv[2] : "bot");

    auto const queue = kv::KvMainQueue::main();
    pollfd waiting[] = {{queue->fd(), POLLIN, 0}, {signals, POLLIN, 0}};
    while (poll(waiting, 2, -1) >= 0 && waiting[1].revents == 0) queue->poll();
    bot.logOut();
    queue->runFor(std::chrono::seconds(2));  // ends with the logout
}
