#include "TestKit/Service.h"

#include "TestKit/Internal/Peer.h"
#include "TestKit/Internal/World.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <list>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {

namespace json = boost::json;
namespace fs = std::filesystem;
using namespace std::chrono_literals;
namespace {

constexpr std::string_view kHost = "service.test", kDiscovery = "/config/api/v1/pim-server",
                           kCollect = "/pim/v1/collect-logan", kLogin = "login", kExpired = "loginFail: ExpiredToken";
constexpr std::size_t kTokenCharacters = 32;

std::int64_t millisecondsOf(std::chrono::nanoseconds time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

// The diagnostics are the process's: one directory for all of its clients, which goes with it.
fs::path const& directory() {
    struct Directory {
        fs::path path;
        Directory() {
            auto name = (fs::temp_directory_path() / "kvpim-test-XXXXXX").string();
            if (::mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
            path = name;
        }
        ~Directory() {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    };
    static Directory const directory;
    return directory.path;
}

json::array itemsOf(std::string_view text, std::vector<std::string> const& attachments = {}) {
    boost::system::error_code error;
    auto items = json::parse(text, error);
    if (error || !items.is_array()) throw std::invalid_argument("not a JSON array: " + std::string(text));
    if (!putAttachments(items, attachments)) throw std::invalid_argument("a placeholder without its attachment");
    return std::move(items.as_array());
}

// As the wire has it; and as the reports of an application's own operations call it.
std::string commandOf(std::string_view name) {
    if (name == "joinChannel") return "join";
    if (name == "leaveChannel") return "leave";
    auto const names = commandNames();
    if (std::ranges::find(names, name) != names.end()) return std::string(name);
    std::string known;
    for (auto const each : names) known.append(known.empty() ? "" : ", ").append(each);
    throw std::invalid_argument("there is no command \"" + std::string(name) + "\", but " + known);
}

int positive(int times) {
    if (times < 1) throw std::invalid_argument("times must be 1 or more");
    return times;
}

}  // namespace

void Clock::advance(std::chrono::nanoseconds duration) {
    queue_->advance(duration);
    for (pollfd ready{queue_->fd(), POLLIN, 0}; ::poll(&ready, 1, 0) > 0;) queue_->poll();
}

class Service::Impl final : public PeerHost, public std::enable_shared_from_this<Impl> {
public:
    explicit Impl(Options options)
        : options_(std::move(options)), queue(KvMainQueue::create(options_.time)), begun(queue ? queue->now() : zero) {
        if (!queue) throw std::runtime_error("the system has no descriptors left");
    }
    ~Impl() {
        if (listener >= 0) ::close(listener);
    }

    // Of one login or request, as it was prepared.
    struct Script {
        std::string what, userId;
        int times;
        std::optional<json::array> items{};  // absent: never answered
        std::optional<std::chrono::milliseconds> delay{};
    };
    struct Session {
        std::string appId, userId;
        KvMainQueue::Clock::time_point second{};
        std::size_t inSecond = 0;
    };
    struct Connected {
        std::shared_ptr<Peer> peer;
        std::optional<Session> session{};
    };

    /// The client's end of a new connection, or -1 and errno. Any thread: an engine may have one of its own.
    int connect() {
        int ends[2];
        int refused = refusals;
        while (refused > 0 && !refusals.compare_exchange_weak(refused, refused - 1)) continue;
        if (isDown || refused > 0) {
            errno = ECONNREFUSED;
            return -1;
        }
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -1;
        queue->dispatch([weak = weak_from_this(), fd = ends[1]] {
            auto const self = weak.lock();
            self ? self->serve(fd) : static_cast<void>(::close(fd));
        });
        return ends[0];
    }

    void serve(int fd) {
        auto const peer = std::make_shared<Peer>(queue, fd, *this);
        peer->sendInPieces(piece);
        connections.push_back({peer});
        peer->start();
    }

    void accept() {
        accepting = queue->whenReadable(listener, [this] {
            int const fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (fd >= 0 && isDown) ::close(fd);
            if (fd >= 0 && !isDown) serve(fd);
            accept();
        });
    }

    // ---- Of a peer

    HttpAnswer onHttp(HttpRequest const& request) override {
        if (request.method == "GET" && request.path == kDiscovery) {
            if (auto const found = discoveries.begin(); found != discoveries.end()) {
                auto const answer = found->second;
                if (--found->first == 0) discoveries.erase(found);
                return answer;
            }
            if (parametersOf(request.query)["appId"].empty())
                return {400, R"({"code":400,"message":"appId is missing"})"};
            json::value const answer{{"code", 200},
                                     {"data", {{"brivelServers", json::array{"http://" + request.host}}}}};
            return {200, json::serialize(answer)};
        }
        if (request.method == "POST" && request.path == kCollect) return {204};
        return {404, R"({"error":"There is nothing here."})"};
    }

    void onConnect(Peer& peer) override {
        auto query = parametersOf(peer.query());
        ++sessions;
        boost::system::error_code error;
        auto const credentials = json::parse(query["token"], error);
        auto const field = [&](std::string_view name) {
            auto const* const object = credentials.if_object();
            auto const* const value = object != nullptr ? object->if_contains(name) : nullptr;
            return value != nullptr && value->is_string() ? std::string(value->as_string()) : std::string();
        };
        auto const appId = query["roomId"], userId = field("userId"), token = field("token");
        auto reason = refusalOf(appId, userId, token);
        if (auto script = take(kLogin, userId)) {
            if (!script->items) return;  // connected, and never answered
            reason = script->items->at(0).as_string();
        }
        if (!reason.empty()) {
            peer.emit("disconnectReason", {reason});
            return reason == kExpired ? peer.refuse(reason) : peer.disconnect();
        }
        connected(peer)->session = Session{appId, userId};
        world(appId).open(userId, peer.shared_from_this());
    }

    std::string refusalOf(std::string const& appId, std::string const& userId, std::string const& token) {
        if (appId.empty()) return "loginFail: InvalidAppId";
        if (userId.empty()) return "loginFail: InvalidArgument";
        if (token.size() != kTokenCharacters || token.find_first_of(" \t\r\n") != std::string::npos)
            return "loginFail: InvalidToken";
        if (expired.contains(token)) return std::string(kExpired);
        auto const user = options_.users.find(userId);
        bool const isKnown = user != options_.users.end() && user->second == token;
        return options_.users.empty() || isKnown ? "" : "loginFail: AuthFail";
    }

    void onEvent(Peer& peer, json::array items, std::optional<std::uint64_t> id) override {
        auto* const session = sessionOf(peer);
        bool const isCommand =
            session != nullptr && items.at(0) == "command" && items.size() > 1 && items[1].is_string();
        if (!isCommand) return;
        std::string const command(items[1].as_string());
        auto const payload = items.size() > 2 ? std::move(items[2]) : json::value();
        requests.push_back({session->userId, command, withoutBytes(payload), queue->now()});
        auto script = take(command, session->userId);
        json::array answer;
        if (script && !script->delay) {
            if (!script->items) return;
            answer = *std::move(script->items);
        } else if (!admits(*session)) {
            answer = {"Too Many Requests"};
        } else {
            answer = {world(session->appId).run(session->userId, command, payload)};
        }
        if (!id) return;
        if (!script || !script->delay) return peer.acknowledge(*id, answer);
        auto const timer = std::make_shared<KvQueueTimer>();
        *timer = queue->after(*script->delay, [timer, weak = peer.weak_from_this(), id, answer = std::move(answer)] {
            if (auto const still = weak.lock()) still->acknowledge(*id, answer);
        });
    }

    void onEnd(Peer& peer) override {
        auto const found = connected(peer);
        if (found == connections.end()) return;
        auto const session = std::move(found->session);
        auto const keep = std::move(found->peer);
        connections.erase(found);
        if (session) world(session->appId).close(session->userId, peer);
    }

    std::optional<Break> breakAt(Moment moment) override {
        auto const found = std::ranges::find(breaks, moment, &Breaking::moment);
        if (found == breaks.end()) return std::nullopt;
        auto const how = found->how;
        if (--found->times == 0) breaks.erase(found);
        return how;
    }

    Options const& options() const override { return options_; }

    // ---- Found and taken

    std::list<Connected>::iterator connected(Peer const& peer) {
        return std::ranges::find_if(connections, [&](auto const& each) { return each.peer.get() == &peer; });
    }
    Session* sessionOf(Peer const& peer) {
        auto const found = connected(peer);
        return found == connections.end() || !found->session ? nullptr : &*found->session;
    }
    World& world(std::string const& appId) {
        return worlds
            .try_emplace(appId, queue, options_.limits,
                         [this] { return millisecondsOf(epoch.time_since_epoch() + (queue->now() - begun)); })
            .first->second;
    }
    /// The world in which the user was last seen, or any that knows him.
    World const* worldOf(std::string_view userId) const {
        auto const found = std::ranges::find_if(
            worlds, [&](auto const& each) { return each.second.users.find(userId) != each.second.users.end(); });
        return found == worlds.end() ? nullptr : &found->second;
    }
    Channel const* channel(std::string_view channelId) const {
        for (auto const& [appId, each] : worlds)
            if (auto const found = each.channels.find(channelId); found != each.channels.end()) return &found->second;
        return nullptr;
    }
    std::shared_ptr<Peer> peerOf(std::string_view userId) const {
        for (auto const& [appId, each] : worlds)
            if (auto const found = each.users.find(userId); found != each.users.end() && found->second.peer)
                return found->second.peer;
        throw std::invalid_argument(std::string(userId) + " is not connected");
    }

    void prepare(Script script) { scripts.push_back(std::move(script)); }
    std::optional<Script> take(std::string_view what, std::string_view userId) {
        auto const found = std::ranges::find_if(scripts, [&](auto const& each) {
            return each.what == what && (each.userId.empty() || each.userId == userId);
        });
        if (found == scripts.end()) return std::nullopt;
        auto script = *found;
        if (--found->times == 0) scripts.erase(found);
        return script;
    }
    bool admits(Session& session) {
        if (options_.rateLimit == 0) return true;
        if (queue->now() - session.second >= 1s) session.second = queue->now(), session.inSecond = 0;
        return ++session.inSecond <= options_.rateLimit;
    }
    static std::string withoutBytes(json::value const& payload) {
        auto shown = payload;
        auto* const object = shown.if_object();
        auto* const content = object != nullptr ? object->if_contains("content") : nullptr;
        if (content != nullptr && content->is_object()) content->as_object().erase("binary");
        return json::serialize(shown);
    }
    void endAll() {
        while (!connections.empty()) connections.front().peer->cut();
    }

    static constexpr KvMainQueue::Clock::time_point zero{};
    struct Breaking {
        Moment moment;
        Break how;
        int times;
    };

    Options const options_;
    std::shared_ptr<KvMainQueue> const queue;
    KvMainQueue::Clock::time_point const begun;
    std::chrono::system_clock::time_point const epoch = std::chrono::system_clock::now();
    std::map<std::string, World> worlds;
    std::list<Connected> connections;
    std::vector<Request> requests;
    std::list<Script> scripts;
    std::list<Breaking> breaks;
    std::list<std::pair<int, HttpAnswer>> discoveries;
    std::set<std::string, std::less<>> expired;
    std::atomic<bool> isDown{false};
    std::atomic<int> refusals{0};
    std::size_t sessions = 0;
    std::size_t piece = 0;
    int listener = -1;
    KvQueueTimer accepting;
};

Service::Service() : Service(Options()) {}

Service::Service(Options options) : impl_(std::make_shared<Impl>(std::move(options))) {}

Service::~Service() {
    impl_->isDown = true;
    impl_->accepting.cancel();
    impl_->endAll();
}

KvPimOptions Service::options() const {
    KvPimOptions options;
    options.envConfig.apiServer = "http://" + std::string(kHost);
    options.envConfig.collectServer = options.envConfig.apiServer + std::string(kCollect);
    options.envConfig.cachesDirectory = directory() / "caches";
    options.envConfig.keyStoreDirectory = directory() / "keys";
    options.mainQueue = impl_->queue;
    options.engine = KvPimEngine::mainQueue;
    options.network.connector = [weak = std::weak_ptr(impl_)](std::string const&, std::uint16_t) {
        if (auto const service = weak.lock()) return service->connect();
        errno = ECONNREFUSED;
        return -1;
    };
    return options;
}

std::shared_ptr<KvMainQueue> const& Service::queue() const { return impl_->queue; }

bool Service::runUntil(std::function<bool()> const& holds, std::chrono::milliseconds atMost) {
    auto const end = std::chrono::steady_clock::now() + atMost;
    for (settle(); !holds(); settle()) {
        if (std::chrono::steady_clock::now() > end) return false;
        pollfd ready{impl_->queue->fd(), POLLIN, 0};
        ::poll(&ready, 1, 5);
    }
    return true;
}

std::string Service::listen(std::uint16_t port) {
    if (impl_->listener >= 0) throw std::runtime_error("the service listens already");
    int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    int const yes = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(fd, generic, size) != 0 || ::listen(fd, SOMAXCONN) != 0 || ::getsockname(fd, generic, &size) != 0) {
        auto const error = errno;
        ::close(fd);
        throw std::system_error(error, std::generic_category(), "port " + std::to_string(port));
    }
    impl_->listener = fd;
    impl_->accept();
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

// ---- What the service knows

std::vector<Request> Service::requests(std::string_view command, std::string_view userId) const {
    auto const name = command.empty() ? std::string() : commandOf(command);
    std::vector<Request> found;
    std::ranges::copy_if(impl_->requests, std::back_inserter(found), [&](Request const& each) {
        return (name.empty() || each.command == name) && (userId.empty() || each.userId == userId);
    });
    return found;
}

bool Service::isOnline(std::string_view userId) const {
    return std::ranges::any_of(impl_->worlds, [&](auto const& each) { return each.second.isConnected(userId); });
}

std::vector<std::string> Service::members(std::string_view channelId) const {
    auto const* const channel = impl_->channel(channelId);
    return channel != nullptr ? channel->members : Ids();
}

std::map<std::string, std::string> Service::channelAttributes(std::string_view channelId) const {
    auto const* const channel = impl_->channel(channelId);
    if (channel == nullptr) return {};
    return {channel->attributes.begin(), channel->attributes.end()};
}

std::map<std::string, std::string> Service::userAttributes(std::string_view userId) const {
    auto const* const world = impl_->worldOf(userId);
    if (world == nullptr) return {};
    auto const& attributes = world->users.find(userId)->second.attributes;
    return {attributes.begin(), attributes.end()};
}

std::size_t Service::keptMessages(std::string_view userId) const {
    std::size_t count = 0;
    for (auto const& [appId, world] : impl_->worlds) count += world.keptMessages(userId);
    return count;
}

std::size_t Service::connections() const { return impl_->sessions; }

std::string Service::state() const {
    json::object apps;
    for (auto const& [appId, world] : impl_->worlds) apps[appId] = world.describe();
    return json::serialize(json::object{{"apps", std::move(apps)}});
}

// ---- What goes wrong with requests

void Service::refuseNext(std::string_view command, int result, int times, std::string_view userId) {
    json::array const items{json::object{{"result", result}}};
    impl_->prepare({commandOf(command), std::string(userId), positive(times), items});
}

void Service::refuseNextAsTooMany(std::string_view command, int times, std::string_view userId) {
    impl_->prepare({commandOf(command), std::string(userId), positive(times), json::array{"Too Many Requests"}});
}

void Service::answerNext(std::string_view command, std::string_view items, int times, std::string_view userId) {
    impl_->prepare({commandOf(command), std::string(userId), positive(times), itemsOf(items)});
}

void Service::ignoreNext(std::string_view command, int times, std::string_view userId) {
    impl_->prepare({commandOf(command), std::string(userId), positive(times)});
}

void Service::delayNext(std::string_view command, std::chrono::milliseconds delay, int times, std::string_view userId) {
    impl_->prepare({commandOf(command), std::string(userId), positive(times), std::nullopt, delay});
}

// ---- What goes wrong with logins

void Service::refuseNextLogin(std::string_view reason, int times, std::string_view userId) {
    impl_->prepare({std::string(kLogin), std::string(userId), positive(times), json::array{reason}});
}

void Service::ignoreNextLogin(int times, std::string_view userId) {
    impl_->prepare({std::string(kLogin), std::string(userId), positive(times)});
}

void Service::expireToken(std::string token) { impl_->expired.insert(std::move(token)); }

void Service::answerNextDiscovery(int status, std::string body, int times) {
    impl_->discoveries.emplace_back(positive(times), HttpAnswer{status, std::move(body)});
}

// ---- What goes wrong with connections

void Service::cut(std::string_view userId) { impl_->peerOf(userId)->cut(); }

void Service::disconnect(std::string_view userId, std::string_view reason) {
    auto const peer = impl_->peerOf(userId);
    peer->emit("disconnectReason", {reason});
    peer->disconnect();
}

void Service::freeze(std::string_view userId) { impl_->peerOf(userId)->freeze(); }

void Service::thaw(std::string_view userId) { impl_->peerOf(userId)->thaw(); }

void Service::breakNextAt(Moment moment, Break how, int times) {
    impl_->breaks.push_back({moment, how, positive(times)});
}

void Service::stop() {
    impl_->isDown = true;
    impl_->endAll();
    impl_->worlds.clear();
}

void Service::start() { impl_->isDown = false; }

void Service::restart() {
    stop();
    start();
}

void Service::refuseNextConnection(int times) { impl_->refusals += positive(times); }

void Service::sendInPieces(std::size_t bytes, std::string_view userId) {
    if (!userId.empty()) return impl_->peerOf(userId)->sendInPieces(bytes);
    impl_->piece = bytes;
}

// ---- What the service says of itself

void Service::emit(std::string_view userId, std::string_view event, std::string_view items,
                   std::vector<std::string> attachments) {
    impl_->peerOf(userId)->emit(event, itemsOf(items, attachments));
}

void Service::sendBytes(std::string_view userId, std::string_view bytes) { impl_->peerOf(userId)->send(bytes); }

void Service::close(std::string_view userId, std::uint16_t code, std::string_view reason) {
    impl_->peerOf(userId)->close(code, reason);
}

}  // namespace kv::test
