#include "TestKit/Replay.h"

#include "TestKit/Internal/Peer.h"
#include "TestKit/Internal/RecordFields.h"
#include "TestKit/Internal/ReplayedCalls.h"
#include "TestKit/Service.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <list>
#include <optional>
#include <stdexcept>
#include <utility>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {
namespace json = boost::json;
namespace {

using Line = json::object;
using Micros = std::chrono::microseconds;

constexpr std::size_t kMostDepth = 128;
// Where the client is told to connect to: what is dialed there ends at the player, whatever stands in the record.
constexpr std::string_view kServer = "http://replay.test";
// Of packets, as the record calls them and as the wire has them.
constexpr std::pair<std::string_view, std::string_view> kTypes[] = {
    {"open", "0"},     {"close", "1"},       {"ping", "2"},   {"pong", "3"}, {"upgrade", "5"},      {"noop", "6"},
    {"connect", "40"}, {"disconnect", "41"}, {"event", "42"}, {"ack", "43"}, {"connectError", "44"}};

Micros timeOf(Line const& line) {
    auto const* const time = line.if_contains("t");
    auto const seconds = time != nullptr && time->is_number() ? time->to_number<double>() : 0;
    return Micros(static_cast<std::int64_t>(std::clamp(seconds, 0.0, 1e9) * 1e6 + 0.5));
}

// A packet as the server sent it: its text, and the frames of what is masked in it.
std::string textOfPacket(Line const& packet, std::optional<std::uint64_t> id) {
    auto const type = textAt(packet, "type");
    auto const* const known = std::ranges::find(kTypes, type, &std::pair<std::string_view, std::string_view>::first);
    if (known == std::end(kTypes) || packet.contains("bytes"))  // nobody knows what it was
        return packet.contains("text")
                   ? std::string(textAt(packet, "text"))
                   : std::string(
                         static_cast<std::size_t>(std::clamp<std::int64_t>(numberAt(packet, "bytes"), 0, 16 << 20)),
                         '*');
    std::string text(known->second);
    if (packet.contains("attachments")) {
        text.back() = static_cast<char>(text.back() + 3);  // the binary kind of the same
        text += std::to_string(numberAt(packet, "attachments")) + '-';
    }
    if (id) text += std::to_string(*id);
    if (auto const* const data = packet.if_contains("data")) text += json::serialize(*data);
    return text;
}

std::string bytesOfPacket(Line const& packet) {
    auto const size = std::clamp<std::int64_t>(numberAt(packet, "bytes"), 0, 16 << 20);
    return std::string(static_cast<std::size_t>(size), '*');
}

// A request of the client: ["command", name, payload] under an id.
struct Request {
    std::uint64_t id = 0;
    std::string command;
    json::value payload;
    Micros time{};

    std::string text() const { return command + ' ' + json::serialize(payload); }
};

std::optional<Request> requestOf(json::value const& data, std::uint64_t id, Micros time) {
    auto const* const items = data.if_array();
    if (items == nullptr || items->size() < 2 || (*items)[0] != "command" || !(*items)[1].is_string()) return {};
    return Request{id, std::string((*items)[1].get_string()), items->size() > 2 ? (*items)[2] : json::value(), time};
}

std::optional<std::uint64_t> takeNumber(std::string_view& text) {
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return {};
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

// ---- One socket of the client: a request of HTTP, and after an upgrade frames.

class Wire;

class WireHost {
public:
    virtual void onHttp(std::shared_ptr<Wire> const& wire, std::string_view head) = 0;
    virtual void onText(Wire const& wire, std::string_view text) = 0;

protected:
    ~WireHost() = default;
};

class Wire : public std::enable_shared_from_this<Wire> {
public:
    Wire(std::shared_ptr<KvMainQueue> queue, int fd, WireHost& host) : queue_(std::move(queue)), fd_(fd), host_(host) {}
    Wire(Wire const&) = delete;
    Wire& operator=(Wire const&) = delete;
    ~Wire() { end(); }

    void read() {
        if (fd_ < 0) return;
        char piece[64u << 10];
        auto const size = ::recv(fd_, piece, sizeof piece, MSG_DONTWAIT);
        if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) return end();
        if (size > 0) in_.append(piece, static_cast<std::size_t>(size));
        consume();
        if (fd_ < 0) return;
        readable_ = queue_->whenReadable(fd_, [weak = weak_from_this()] {
            if (auto const self = weak.lock()) self->read();
        });
    }

    void send(std::string_view bytes) {
        out_.append(bytes);
        flush();
    }
    void upgrade() {
        send(
            "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Accept: " +
            acceptKeyOf(key_) + "\r\n\r\n");
    }
    /// Behind what is still to be sent.
    void finish() {
        isEnding_ = true;
        flush();
    }

private:
    void consume() {
        if (auto const end = in_.find("\r\n\r\n"); !isUpgrading_ && end != std::string::npos) {
            auto const head = in_.substr(0, end);
            in_.erase(0, end + 4);
            key_ = headerOf(head, "Sec-WebSocket-Key");
            isUpgrading_ = !key_.empty();
            host_.onHttp(shared_from_this(), head);
        }
        if (!isUpgrading_) return;
        for (auto const& frame : takeClientFrames(in_)) {
            if (frame.opcode == kText) host_.onText(*this, frame.payload);
            if (frame.opcode == kPing) send(serverFrame(kFin | kPong, frame.payload));
            if (frame.opcode == kClose) finish();
        }
    }

    void flush() {
        while (fd_ >= 0 && !out_.empty()) {
            auto const sent = ::send(fd_, out_.data(), out_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (sent > 0) {
                out_.erase(0, static_cast<std::size_t>(sent));
            } else if (errno == EAGAIN) {
                writable_ = queue_->whenWritable(fd_, [weak = weak_from_this()] {
                    if (auto const self = weak.lock()) self->flush();
                });
                return;
            } else {
                return end();
            }
        }
        if (isEnding_) end();
    }

    void end() {
        readable_.cancel();
        writable_.cancel();
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }

    std::shared_ptr<KvMainQueue> const queue_;
    int fd_;
    WireHost& host_;
    std::string in_, out_, key_;
    bool isUpgrading_ = false, isEnding_ = false;
    KvQueueTimer readable_, writable_;
};

// ---- The whole of it

class Player final : public WireHost {
public:
    explicit Player(std::vector<Line> lines) : lines_(std::move(lines)) {
        for (auto const& line : lines_) {
            auto const connection = numberAt(line, "connection");
            if (textAt(line, "life") == "dialing") dials_.push_back(connection);
            auto const& packet = objectAt(line, "out");
            auto const* const data = packet.if_contains("data");
            if (data == nullptr || !packet.contains("id")) continue;
            auto request = requestOf(*data, static_cast<std::uint64_t>(numberAt(packet, "id")), timeOf(line));
            if (request) links_[connection].awaited.push_back(*std::move(request));
        }
    }
    ~Player() {
        kit_ = nullptr;
        calls_.reset();
        clock_.advance({});
    }
    Player(Player const&) = delete;
    Player& operator=(Player const&) = delete;

    Replay play() {
        for (auto const& line : lines_) {
            auto const time = timeOf(line);
            clock_.advance(std::max(time - now_, Micros(0)));
            now_ = std::max(now_, time);
            step(line);
            clock_.advance({});
        }
        compare();
        return std::move(replay_);
    }

private:
    // One connection of the record, and what the client has of it.
    struct Link {
        std::weak_ptr<Wire> wire;  // the latest, where the client dialed anew
        bool isDialed = false, isAllowed = false, isUpgraded = false;
        std::string waiting;                           // frames for a client that is not there yet
        std::list<Request> awaited;                    // of the record, and not made yet
        std::map<std::uint64_t, std::uint64_t> ids;    // of the record, to the client's own
        std::map<std::uint64_t, std::string> answers;  // frames behind the text, which wait for the question
        std::map<std::uint64_t, Line> questions;       // the acknowledgements that these belong to
        // A packet whose attachments are still to come.
        std::optional<Line> unfinished;
        std::int64_t missing = 0;
        std::string attachments;
    };
    struct Call {
        std::string method;
        std::vector<std::int64_t> recorded, made;
        bool isMade = false;
    };

    void step(Line const& line) {
        auto const connection = numberAt(line, "connection");
        if (auto const life = textAt(line, "life"); !life.empty()) return live(life, line, connection);
        if (line.contains("in")) return receive(links_[connection], objectAt(line, "in"));
        if (line.contains("call")) return call(line);
        if (line.contains("ended")) {
            if (auto const found = ended_.find(numberAt(line, "ended")); found != ended_.end())
                found->second.recorded.push_back(numberAt(line, "code"));
        }
    }

    void live(std::string_view life, Line const& line, std::int64_t connection) {
        if (life == "made") return make(line);
        if (life == "discovered" || life == "notDiscovered") return answerDiscovery(life == "discovered");
        if (life == "gone") {
            tell("the application lets go of the client");
            kit_ = nullptr;
            calls_.reset();
        }
        if (life != "open" && life != "lost") return;
        auto& link = links_[connection];
        if (life == "open") {
            link.isAllowed = true;
            return open(link);
        }
        if (auto const wire = link.wire.lock()) wire->finish();
    }

    void make(Line const& line) {
        auto options = host_.options();
        options.envConfig.apiServer = kServer;
        if (auto const time = numberAt(line, "connectTimeout"); time > 0)
            options.network.connectTimeout = std::chrono::milliseconds(time);
        options.network.requestTimeout = std::chrono::milliseconds(numberAt(line, "requestTimeout"));
        options.network.connector = [this](std::string const&, std::uint16_t) {
            int ends[2];
            if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -1;
            wires_.push_back(std::make_shared<Wire>(host_.queue(), ends[1], *this));
            wires_.back()->read();
            return ends[0];
        };
        kit_ = KvPimKit::initWithAppId(std::string(textAt(line, "appId")), std::weak_ptr<KvPimDelegate>(), options);
        if (!kit_) throw std::invalid_argument("no client can be made as the recorded one was");
        calls_.emplace(kit_);
    }

    void call(Line const& line) {
        if (!calls_ || line.contains("restoring")) return;
        auto const number = numberAt(line, "call");
        auto& call = ended_[number];
        call.method = textAt(line, "method");
        tell("call " + std::to_string(number) + "  " + call.method);
        auto calls = *calls_;  // a completion may have the application let go of the client
        call.isMade = calls.make(line, [this, number](std::int64_t code) {
            ended_[number].made.push_back(code);
            tell("call " + std::to_string(number) + "  " + ended_[number].method + " ends with " +
                 std::to_string(code));
        });
        if (!call.isMade) tell("        ... which was refused before it was sent, and is not made again");
    }

    // ---- The server's side

    void onHttp(std::shared_ptr<Wire> const& wire, std::string_view head) override {
        if (headerOf(head, "Sec-WebSocket-Key").empty()) {
            discoveries_.push_back(wire);
            return tell("asks for the socket server");
        }
        auto const attempt = attempts_++;
        if (attempt >= dials_.size()) {
            wire->finish();
            return differ("connects once more than in the record");
        }
        auto const connection = dials_[attempt];
        tell("connects (#" + std::to_string(connection) + ")");
        auto& link = links_[connection];
        link.wire = wire;
        link.isDialed = true;
        if (link.isAllowed) open(link);
    }

    void answerDiscovery(bool isFound) {
        for (auto const& weak : std::exchange(discoveries_, {})) {
            auto const wire = weak.lock();
            if (!wire) continue;
            std::string const body =
                isFound ? R"({"code":200,"data":{"brivelServers":[")" + std::string(kServer) + "\"]}}" : "{}";
            wire->send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
                       "\r\n\r\n" + body);
            wire->finish();
        }
    }

    void open(Link& link) {
        auto const wire = link.wire.lock();
        if (!wire || std::exchange(link.isUpgraded, true)) return;
        wire->upgrade();
        wire->send(std::exchange(link.waiting, {}));
    }

    void send(Link& link, std::string const& frames) {
        auto const wire = link.wire.lock();
        if (!link.isUpgraded) {
            link.waiting += frames;
        } else if (wire) {
            wire->send(frames);
        }
    }

    void receive(Link& link, Line const& packet) {
        if (textAt(packet, "type") == "binary") {
            link.attachments += binaryFrame(bytesOfPacket(packet));
            if (!link.unfinished || --link.missing > 0) return;
        } else if (link.missing = numberAt(packet, "attachments"); link.missing > 0) {
            link.unfinished = packet;
            return;
        }
        auto const whole = link.unfinished ? *std::exchange(link.unfinished, {}) : packet;
        auto const frames = std::exchange(link.attachments, {});
        auto id =
            whole.contains("id") ? std::optional(static_cast<std::uint64_t>(numberAt(whole, "id"))) : std::nullopt;
        if (textAt(whole, "type") == "ack" && id) {
            auto const own = link.ids.find(*id);
            if (own == link.ids.end()) {
                link.questions.emplace(*id, whole);
                link.answers.emplace(*id, frames);
                return;
            }
            id = own->second;
        }
        send(link, textFrame(textOfPacket(whole, id)) + frames);
    }

    void onText(Wire const& wire, std::string_view text) override {
        if (!text.starts_with("42") && !text.starts_with("45")) return;
        bool const isBinary = text[1] == '5';
        text.remove_prefix(2);
        if (isBinary) takeNumber(text);
        if (isBinary && text.starts_with('-')) text.remove_prefix(1);
        auto const id = takeNumber(text);
        boost::system::error_code error;
        auto const data = json::parse(text, error);
        auto const made = error || !id ? std::nullopt : requestOf(data, *id, now_);
        if (!made) return;
        tell("-> " + made->text());
        for (auto& [connection, link] : links_)
            if (link.wire.lock().get() == &wire) return onRequest(link, *made);
    }

    void onRequest(Link& link, Request const& made) {
        auto const found = std::ranges::find_if(link.awaited, [&](Request const& awaited) {
            return awaited.command == made.command && awaited.payload == made.payload;
        });
        if (found == link.awaited.end()) return differ("sends what the record has not: " + made.text());
        auto const recorded = found->id;
        link.awaited.erase(found);
        link.ids[recorded] = made.id;
        if (auto const answer = link.questions.extract(recorded); !answer.empty())
            send(link, textFrame(textOfPacket(answer.mapped(), made.id)) + link.answers[recorded]);
    }

    // ---- What came of it

    void compare() {
        for (auto const& [connection, link] : links_) {
            for (auto const& request : link.awaited)
                differ("does not send, on connection " + std::to_string(connection) + ", what the record has at " +
                       clock(request.time) + ": " + request.text());
        }
        if (attempts_ < dials_.size())
            differ("connects " + std::to_string(attempts_) + " times, and in the record " +
                   std::to_string(dials_.size()) + " times");
        for (auto const& [number, call] : ended_) {
            if (!call.isMade || call.recorded.empty() || call.recorded == call.made) continue;
            differ("call " + std::to_string(number) + "  " + call.method + " ends with " + list(call.made) +
                   ", and in the record with " + list(call.recorded));
        }
    }

    static std::string list(std::vector<std::int64_t> const& codes) {
        std::string text;
        for (auto const code : codes) text += (text.empty() ? "" : ", ") + std::to_string(code);
        return text.empty() ? "nothing" : text;
    }

    static std::string clock(Micros time) {
        char text[32];
        std::snprintf(text, sizeof text, "%.6f", static_cast<double>(time.count()) / 1e6);
        return text;
    }

    void tell(std::string const& what) { replay_.story.push_back(clock(now_) + "  " + what); }
    void differ(std::string const& what) {
        tell("DIFFERS: " + what);
        replay_.differences.push_back(clock(now_) + "  " + what);
    }

    std::vector<Line> const lines_;
    Service host_;  // lends its queue and its directories; nobody connects to it
    Clock clock_ = host_.clock();
    Micros now_{0};
    Replay replay_;
    std::shared_ptr<KvPimKit> kit_;
    std::optional<ReplayedCalls> calls_;
    std::map<std::int64_t, Call> ended_;
    std::vector<std::int64_t> dials_;  // the connection of each attempt in the record
    std::size_t attempts_ = 0;
    std::map<std::int64_t, Link> links_;
    std::vector<std::shared_ptr<Wire>> wires_;
    std::vector<std::weak_ptr<Wire>> discoveries_;
};

// The lines of one client in the latest of the records in these files.
std::vector<Line> linesOf(std::string const& path, std::uint64_t client) {
    std::vector<Line> lines;
    std::string started;
    bool isWhole = false;
    json::parse_options options;
    options.max_depth = kMostDepth;
    for (auto const& name : {path + ".1", path}) {
        std::ifstream file(name, std::ios::binary);
        for (std::string text; std::getline(file, text);) {
            boost::system::error_code error;
            auto value = json::parse(text, error, {}, options);
            if (error || !value.is_object()) continue;
            auto& line = value.get_object();
            if (textAt(line, "format") == "kvpim-record") {
                if (textAt(line, "started") == started) continue;
                started = textAt(line, "started");
                isWhole = numberAt(line, "part") == 1;
                lines.clear();
            } else if (numberAt(line, "client") == static_cast<std::int64_t>(client)) {
                lines.push_back(std::move(line));
            }
        }
    }
    if (started.empty()) throw std::invalid_argument("no record: " + path);
    if (!isWhole) throw std::invalid_argument("the beginning of the record has been written over: " + path);
    if (lines.empty()) throw std::invalid_argument("the record has no client " + std::to_string(client));
    // Two threads write: what one has told earlier may stand later.
    std::ranges::stable_sort(lines, {}, timeOf);
    return lines;
}

}  // namespace

Replay replay(std::string const& file, std::uint64_t client) { return Player(linesOf(file, client)).play(); }

}  // namespace kv::test
