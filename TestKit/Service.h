// A service in the test's own process, for the unit tests of programs that use the library.
//
//     kv::test::Service service;
//     auto clock = service.clock();                                    // time stands still until the test moves it
//     auto alice = kv::KvPimKit::initWithAppId("app", delegate, service.options());
//     alice->loginByToken(kv::test::kToken, now, "alice", onLogin);
//     service.settle();                                                // all that can happen now has happened
//     service.refuseNext("joinChannel", 3);
//     service.cut("alice");
//     clock.advance(1s);                                               // a second later she is back
//     EXPECT_EQ(service.requests("joinChannel").size(), 2);
//
// The client is the real one, with all that it does to reach a server; between the two is a pair of connected sockets.
// Clients and service share one queue and one thread, so that a test does the same each time, and sleeps nowhere.
//
// Everything here belongs to the thread that drives the queue. Wrong arguments throw std::invalid_argument.
#pragma once

#include "Classes/Model/KvPimOptions.h"
#include "Platform/KvMainQueue.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

/// The test kit: `KvPim::testkit`.
namespace test {

/// A token that the service takes, as it takes any of 32 characters.
inline constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

/// The time of a service and of its clients.
class Clock {
public:
    /// Of a queue whose time is manual.
    explicit Clock(std::shared_ptr<KvMainQueue> queue) : queue_(std::move(queue)) {}
    /// Moves the time, and runs all that becomes due, in its order.
    void advance(std::chrono::nanoseconds duration);
    /// The time on the queue's clock.
    KvMainQueue::Clock::time_point now() const { return queue_->now(); }

private:
    std::shared_ptr<KvMainQueue> queue_;
};

/// A point in the life of a connection at which it can be made to break.
enum class Moment {
    discovery,   ///< the request for the socket server has been read
    upgrade,     ///< in the middle of the answer to the WebSocket handshake
    opening,     ///< behind that answer, before the session is opened
    login,       ///< the client is in the namespace, and waits to hear of its login
    event,       ///< in the middle of the next event to the client
    answer,      ///< in the middle of the next answer to a request
    attachment,  ///< between the next event with binary data, and that data
};

/// How it breaks there.
enum class Break {
    cut,      ///< the connection ends without a word
    silence,  ///< the connection stays, and nothing comes any more
};

/// A request, as the service received it.
struct Request {
    std::string userId;   ///< whose it was
    std::string command;  ///< as it is called on the wire: "join", "sendMessageToPeer"
    std::string payload;  ///< as JSON, bytes left out
    KvMainQueue::Clock::time_point time;
};

/// How much the service takes; the same as those of the local service.
struct Limits {
    std::size_t channelsPerUser = 1000, membersPerChannel = 10'000, subscriptionsPerUser = 10'000,
                attributesPerOwner = 256, attributeBytesPerOwner = 65'536, offlineMessagesPerUser = 200;
};

/// The service. It speaks the whole protocol, with all commands and events, as the local service does; what it keeps
/// ends with it. Clients may outlive it: they find their connections ended, and nobody at the address.
class Service {
public:
    /// All of it may stay as it is.
    struct Options {
        /// `real` for a service that others are to reach through `listen`.
        KvMainQueue::Time time = KvMainQueue::Time::manual;
        /// How often it asks whether a client is still there, and how long it waits for the answer.
        std::chrono::milliseconds pingInterval{25'000}, pingTimeout{20'000};
        Limits limits{};
        /// Commands that one connection may send in a second; 0 for any number.
        std::size_t rateLimit = 0;
        /// Who may log in, with which token; empty for everybody.
        std::map<std::string, std::string> users{};
    };

    Service();
    /// Throws std::runtime_error when the system has no descriptors left.
    explicit Service(Options options);
    ~Service();
    Service(Service const&) = delete;
    Service& operator=(Service const&) = delete;

    /// The options of a client of this service: its address, its queue, and the way to it. The engine is on the queue,
    /// the diagnostics are in a directory of the process's own. Change what else you like.
    KvPimOptions options() const;
    /// The queue of the service and its clients.
    std::shared_ptr<KvMainQueue> const& queue() const;
    /// Its time.
    Clock clock() const { return Clock(queue()); }
    /// Runs clients and service until there is nothing left to be done at this moment of the clock.
    void settle() { clock().advance({}); }
    /// Runs both until it holds; false when it does not within this time, which is real time: for clients whose engine
    /// is a thread.
    bool runUntil(std::function<bool()> const& holds, std::chrono::milliseconds atMost = std::chrono::seconds(60));
    /// Lets others in over TCP, on the loopback: programs in other processes and other languages. Returns the address
    /// of the API server. Port 0 takes a free one. Throws std::runtime_error when it cannot be had. The queue has to be
    /// run for as long as they are to be served.
    std::string listen(std::uint16_t port = 0);

    // ---- What the service knows. Users are looked for in all apps.

    /// The requests so far, in their order; of this command and this user, where they are given.
    std::vector<Request> requests(std::string_view command = {}, std::string_view userId = {}) const;
    /// Whether the user has a session now.
    bool isOnline(std::string_view userId) const;
    /// In the order of joining.
    std::vector<std::string> members(std::string_view channelId) const;
    /// All of them; none for a channel that there is not.
    std::map<std::string, std::string> channelAttributes(std::string_view channelId) const;
    /// The same of a user who is connected.
    std::map<std::string, std::string> userAttributes(std::string_view userId) const;
    /// How many messages wait for the user's next login.
    std::size_t keptMessages(std::string_view userId) const;
    /// How many connections have come so far, those of the discovery left out.
    std::size_t connections() const;
    /// All of it, as JSON: what the control endpoint of the local service shows.
    std::string state() const;

    // ---- What goes wrong with requests. `command` as on the wire ("join"), or "joinChannel" and "leaveChannel".
    // `userId` empty: anybody's. What is prepared is used up in its order.

    /// The next such requests are not carried out, and are answered with this result.
    void refuseNext(std::string_view command, int result, int times = 1, std::string_view userId = {});
    /// They are refused because they are too many.
    void refuseNextAsTooMany(std::string_view command, int times = 1, std::string_view userId = {});
    /// They get these items for an answer: a JSON array of whatever you like.
    void answerNext(std::string_view command, std::string_view items, int times = 1, std::string_view userId = {});
    /// They are not carried out, and never answered.
    void ignoreNext(std::string_view command, int times = 1, std::string_view userId = {});
    /// They are carried out, and answered so much later.
    void delayNext(std::string_view command, std::chrono::milliseconds delay, int times = 1,
                   std::string_view userId = {});

    // ---- What goes wrong with logins

    /// The next logins are refused with this text, such as "loginFail: AuthFail".
    void refuseNextLogin(std::string_view reason, int times = 1, std::string_view userId = {});
    /// They are connected, and never hear of their login.
    void ignoreNextLogin(int times = 1, std::string_view userId = {});
    /// From now on the token has expired: a login with it is refused, and a client that comes back with it tells
    /// `tokenDidExpire`.
    void expireToken(std::string token);
    /// The next discoveries are answered with this status and body.
    void answerNextDiscovery(int status, std::string body, int times = 1);

    // ---- What goes wrong with connections. `userId`: of one who is connected.

    /// Ends the user's connection, without a word.
    void cut(std::string_view userId);
    /// Tells the user why, and ends the session: "KickOff" ends it for good, another reason has the client come back.
    void disconnect(std::string_view userId, std::string_view reason);
    /// Ends it because the user has logged in elsewhere.
    void kick(std::string_view userId) { disconnect(userId, "KickOff"); }
    /// The connection stays, and the service neither reads nor writes, until `thaw`: a frozen server, a pulled cable,
    /// a reader that is slow.
    void freeze(std::string_view userId);
    /// Goes on where it stood still.
    void thaw(std::string_view userId);
    /// Connections that come to this moment break there, the next one or the next few.
    void breakNextAt(Moment moment, Break how = Break::cut, int times = 1);
    /// Nobody is at the address any more: connections end, new ones are refused, and what was known of users and
    /// channels is forgotten.
    void stop();
    /// The service is there again.
    void start();
    /// `stop` and `start`: killed and started again between two instants.
    void restart();
    /// The next attempts to connect fail, discovery's included, as if nobody listened.
    void refuseNextConnection(int times = 1);
    /// What is sent to the user's connection goes in pieces of so many bytes; 0 for all at once. Without a user: on all
    /// connections that come.
    void sendInPieces(std::size_t bytes, std::string_view userId = {});

    // ---- What the service says of itself

    /// Emits an event to a user: a JSON array of items, whatever they are. {"_placeholder":true,"num":0} in it stands
    /// for the first of the attachments.
    void emit(std::string_view userId, std::string_view event, std::string_view items,
              std::vector<std::string> attachments = {});
    /// Sends bytes on the user's connection, which need be no frame.
    void sendBytes(std::string_view userId, std::string_view bytes);
    /// Ends the user's WebSocket with a close frame.
    void close(std::string_view userId, std::uint16_t code, std::string_view reason = {});

private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace test
}  // namespace kv
