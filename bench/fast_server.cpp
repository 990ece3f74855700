// A server that is faster than any client: discovery, login and acknowledgements with just enough of the protocols,
// read and written in large pieces, so that a measurement shows the client alone. Prints "PORT n", and ends with its
// standard input.
//
// A message to "nobody" is never acknowledged, one to "me" comes back, one to "flood-text", "flood-channel" or
// "flood-status" asks for as many events of that kind as its text says.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t kReadBytes = 1u << 20;
constexpr int kEvents = 256;
constexpr std::uint32_t kAddresses = 8;  // one has too few ports for fifty thousand connections
constexpr long kMessagesInAWrite = 256;

// What stands between two texts, or an empty view.
std::string_view between(std::string_view text, std::string_view before, std::string_view after) {
    auto const start = text.find(before);
    if (start == std::string_view::npos) return {};
    text.remove_prefix(start + before.size());
    return text.substr(0, text.find(after));
}

std::string acceptKey(std::string_view key) {
    auto const text = std::string(key) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    std::array<unsigned char, 64> encoded;
    unsigned size = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha1(), nullptr);
    auto const encodedSize = EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(size));
    return {encoded.begin(), encoded.begin() + encodedSize};
}

void putFrame(std::string& out, std::string_view text) {
    out += '\x81';
    if (text.size() < 126) {
        out += static_cast<char>(text.size());
    } else {
        out += {'\x7E', static_cast<char>(text.size() >> 8), static_cast<char>(text.size() & 255)};
    }
    out += text;
}

std::string messageEvent(std::string_view text) {
    return R"(42["MessageToPeerReceived",{"msgs":[{"fromUserId":"carol","serverReceivedTs":1700000000000,)"
           R"("content":{"text":")" +
           std::string(text) + R"(","binary":null}}]}])";
}

// What a "flood" consists of: each event is told from the one before, so that none is taken for a repetition.
std::string eventOf(std::string_view kind, long number) {
    if (kind == "flood-channel") {
        return R"(42["ChannelMessageReceived",{"from":{"userId":"carol","channelId":"room-0"},)"
               R"("serverReceivedTs":1700000000000,"content":{"text":"hello","binary":null}}])";
    }
    if (kind == "flood-status") {
        return R"(42["PeersOnlineStatusChanged",{"status":{"peer-0":)" + std::to_string(number & 1) + "}}]";
    }
    return messageEvent(std::string(64, 'x'));
}

class Peer {
public:
    explicit Peer(int socket) : socket_(socket) {}

    /// False when the connection is over.
    bool onReadable(std::vector<char>& buffer) {
        auto const before = unread_.size();
        std::copy(unread_.begin(), unread_.end(), buffer.begin());
        auto const size = ::recv(socket_, buffer.data() + before, buffer.size() - before, 0);
        if (size <= 0) return false;
        std::span<char> bytes(buffer.data(), before + static_cast<std::size_t>(size));
        out_.clear();
        bool const goesOn = isWebSocket_ ? readFrames(bytes) : readRequest(bytes);
        unread_.assign(bytes.begin(), bytes.end());
        return send() && goesOn;
    }

private:
    bool send() {
        for (std::string_view rest = out_; !rest.empty();) {
            auto const sent = ::send(socket_, rest.data(), rest.size(), MSG_NOSIGNAL);
            if (sent <= 0) return false;
            rest.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    bool readRequest(std::span<char>& bytes) {
        std::string_view const request(bytes.data(), bytes.size());
        if (!request.ends_with("\r\n\r\n")) return true;
        auto const key = between(request, "Sec-WebSocket-Key: ", "\r\n");
        if (key.empty()) {
            auto const host = std::string(between(request, "Host: ", "\r\n"));
            auto const body = R"({"code":200,"data":{"brivelServers":["http://)" + host + R"("]}})";
            out_ = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        } else {
            isWebSocket_ = true;
            out_ =
                "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                "Sec-WebSocket-Accept: " +
                acceptKey(key) + "\r\n\r\n";
            putFrame(out_, R"(0{"sid":"s1","upgrades":[],"pingInterval":300000,"pingTimeout":200000})");
        }
        bytes = {};
        return true;
    }

    bool readFrames(std::span<char>& bytes) {
        while (bytes.size() >= 6) {
            auto const byte = [&](std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); };
            std::size_t size = byte(1) & 127, header = 6;
            if (size == 126) {
                size = static_cast<std::size_t>(byte(2)) << 8 | byte(3);
                header = 8;
            }
            if (bytes.size() < header + size) break;
            auto const payload = bytes.subspan(header, size);
            auto const mask = bytes.subspan(header - 4, 4);
            for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<char>(payload[i] ^ mask[i & 3]);
            if ((byte(0) & 15) == 8) return false;
            onText({payload.data(), size});
            bytes = bytes.subspan(header + size);
        }
        return true;
    }

    void onText(std::string_view text) {
        if (text.starts_with("40")) {
            putFrame(out_, R"(40{"sid":"s2"})");
            putFrame(out_, R"(42["loginSuccess",{"connectionId":"s2"}])");
        }
        if (!text.starts_with("42")) return;
        auto const id = text.substr(2, text.find('[') - 2);
        auto const target = between(text, R"("targetUserId":")", "\"");
        auto const content = between(text, R"("text":")", "\"");
        if (target == "nobody") return;
        putFrame(out_, "43" + std::string(id) + R"([{"result":0}])");
        if (target == "me") putFrame(out_, messageEvent(content));
        if (target.starts_with("flood-")) flood(target, content);
    }

    void flood(std::string_view kind, std::string_view count) {
        long left = 0;
        std::from_chars(count.data(), count.data() + count.size(), left);
        while (left > 0) {
            for (long some = std::min(left, kMessagesInAWrite); some > 0; --some) putFrame(out_, eventOf(kind, left--));
            if (!send()) return;
            out_.clear();
        }
    }

    int const socket_;
    bool isWebSocket_ = false;
    std::vector<char> unread_;
    std::string out_;
};

void allowManyFiles() {
    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
}

// On the same port of all addresses, which the first of them chooses.
std::vector<int> listenAnywhere() {
    std::vector<int> listeners;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    for (std::uint32_t i = 0; i < kAddresses; ++i) {
        int const listener = ::socket(AF_INET, SOCK_STREAM, 0);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + i);
        if (::bind(listener, generic, size) != 0 || ::listen(listener, 16384) != 0) return {};
        ::getsockname(listener, generic, &size);
        listeners.push_back(listener);
    }
    std::printf("PORT %d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return listeners;
}

void watch(int poll, int socket) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = socket;
    ::epoll_ctl(poll, EPOLL_CTL_ADD, socket, &event);
}

}  // namespace

int main() {
    allowManyFiles();
    auto const listeners = listenAnywhere();
    if (listeners.empty()) return 1;
    int const poll = ::epoll_create1(0);
    for (int const listener : listeners) watch(poll, listener);
    watch(poll, STDIN_FILENO);
    std::vector<char> buffer(kReadBytes);
    std::unordered_map<int, Peer> peers;
    for (;;) {
        std::array<epoll_event, kEvents> events;
        int const count = ::epoll_wait(poll, events.data(), kEvents, -1);
        for (int i = 0; i < count; ++i) {
            int const socket = events[static_cast<std::size_t>(i)].data.fd;
            if (socket == STDIN_FILENO) return 0;
            if (std::ranges::find(listeners, socket) != listeners.end()) {
                int const made = ::accept(socket, nullptr, nullptr), one = 1;
                if (made < 0) continue;
                ::setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                peers.emplace(made, made);
                watch(poll, made);
            } else if (!peers.at(socket).onReadable(buffer)) {
                peers.erase(socket);
                ::close(socket);
            }
        }
    }
}
