// The HTTP exchange that turns a connection into a WebSocket.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv::sio {

inline constexpr std::size_t kMostResponseBytes = 16384;

/// What was agreed about permessage-deflate.
struct DeflateAgreement {
    bool isEnabled = false;
    bool serverKeepsContext = true;
    int clientWindowBits = 0;  // of what this side deflates; 0 when it deflates nothing
};

/// The request target of a Socket.IO connection at this path, with these query parameters.
std::string requestTarget(std::string_view path, std::vector<std::pair<std::string, std::string>> const& parameters);

class Upgrade {
public:
    /// `authority`: host and port; `offersDeflate`: whether permessage-deflate is offered; `headerLines`: further lines
    /// of the request, each with its end.
    Upgrade(std::string_view authority, std::string_view target, bool offersDeflate, std::string_view headerLines = {});

    /// Whether bytes that begin like this can be an answer at all.
    static bool mayBeHttp(std::string_view start);

    std::string const& request() const { return request_; }
    /// Whether a head is one that another one follows (100 Continue, 103 Early Hints), and says nothing itself.
    static bool isInterim(std::string_view head);
    /// Judges the head of the response (without the empty line). Returns an error text, empty when it is right.
    std::string check(std::string_view head, DeflateAgreement& agreement) const;

private:
    std::string request_;
    std::string expectedAccept_;
    bool offersDeflate_;
};

}  // namespace kv::sio
