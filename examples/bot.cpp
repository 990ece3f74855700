// A bot that does what its visitors write to it, until SIGINT or SIGTERM. Everybody can see that it is there, and since
// when; it greets those who went away and came back. A lost connection is the library's business: it comes back by
// itself, with the attributes and the subscriptions.
//     bot [API SERVER] [USER]
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <set>
#include <stop_token>
#include <thread>

#include <KvPim/KvPimAwait.h>

using namespace std::chrono_literals;

namespace {

void log(std::string const& what) {
    std::printf("bot: %s\n", what.c_str());
    std::fflush(stdout);
}

kv::KvTask<bool> logIn(kv::KvPimKit& client, std::string user) {
    for (;;) {
        auto const now = std::chrono::system_clock::now();
        auto const login = co_await client.loginByToken("0123456789abcdef0123456789abcdef", now, user);
        if (login) break;
        log("the login failed: " + login.error().message());
        bool const isWorthATry = login.error() == kv::KvErrc::timedOut || login.error() == kv::KvPimLoginErrorUnknown;
        if (!isWorthATry) co_return false;
        co_await kv::sleep(client.mainQueue(), 3s);
    }
    auto const told =
        co_await client.setLocalUserAttributes({{"kind", "bot"}, {"since", std::to_string(std::time({}))}});
    log(told ? "told everybody that it is here" : told.error().message());
    co_return true;
}

std::string answerTo(kv::KvPimMessage const& message) {
    if (!message.text) return "Those were bytes.";
    if (*message.text == "help") return "time: what time it is. Everything else: I say it back.";
    if (*message.text == "time") return std::to_string(std::time(nullptr));
    return "You said: " + *message.text;
}

kv::KvTask<> serve(std::shared_ptr<kv::KvPimKit> client, std::string user) {
    auto events = client->events();  // before the login, which brings what was written meanwhile
    if (!co_await logIn(*client, user)) co_return;
    std::set<std::string> away;
    while (auto const event = co_await events.next()) {
        if (auto const* it = std::get_if<kv::event::MessageReceived>(&*event)) {
            client->subscribePeersOnlineStatus({it->peerId});
            auto const sent = co_await client->sendMessageToPeer(answerTo(*it->message), it->peerId);
            log(sent ? "answered" : sent.error().message());
        } else if (auto const* changed = std::get_if<kv::event::PeersOnlineStatusChanged>(&*event)) {
            for (auto const& status : changed->statuses) {
                if (!status.isOnline) {
                    away.insert(status.peerId);
                } else if (away.erase(status.peerId) != 0) {
                    client->sendMessageToPeer("Welcome back!", status.peerId);
                }
            }
        } else if (auto const* connection = std::get_if<kv::event::ConnectionStateChanged>(&*event)) {
            log(std::string(kv::toString(kv::KvPimConnectionState(connection->state))));
            // Another login of this user, since the library reconnects otherwise.
            if (connection->state == kv::KvPimConnectionStateDisconnected) break;
        }
    }
}

kv::KvTask<> serveUntil(std::stop_token end, std::shared_ptr<kv::KvPimKit> client, std::string user) {
    co_await kv::spawn(client->mainQueue(), serve(client, user)).until(end);
    co_await client->logout().within(2s);
}

}  // namespace

int main(int argc, char** argv) {
    // Blocked before there are other threads, so that this one alone gets them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::stop_source end;
    std::thread([ends, end]() mutable {
        int signal = 0;
        sigwait(&ends, &signal);
        end.request_stop();
    }).detach();

    kv::KvPimOptions options;
    options.envConfig.apiServer = argc > 1 ? argv[1] : "http://127.0.0.1:8600";
    auto const client = kv::KvPimKit::create("demo", options);
    if (!client) return log(client.error().message()), 1;
    kv::run(kv::KvMainQueue::main(), serveUntil(end.get_token(), *client, argc > 2 ? argv[2] : "bot"));
}
