#include "Net/NameLookup.h"

#include "Platform/KvThread.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <netdb.h>

namespace kv::net {
namespace asio = boost::asio;
namespace {

constexpr int kMostLookUps = 64;  // at a time; more would only pile up behind a dead name server
// Who asks for a name this soon after another waits for the same answer. Later ones ask anew: the network may have
// changed.
constexpr std::chrono::seconds kShared{1};

// The families take turns, the resolver's choice first: a family that leads nowhere costs one attempt, not all of them.
void interleaveFamilies(Endpoints& endpoints) {
    auto const family = [](auto const& endpoint) { return endpoint.protocol().family(); };
    for (std::size_t i = 1; i < endpoints.size(); ++i) {
        auto const from = endpoints.begin() + static_cast<std::ptrdiff_t>(i);
        auto const other = std::find_if(
            from, endpoints.end(), [&](auto const& endpoint) { return family(endpoint) != family(endpoints[i - 1]); });
        if (other != endpoints.end()) std::rotate(from, other, other + 1);
    }
}

std::string askResolver(std::string const& host, Endpoints& endpoints) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int const problem = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (problem != 0) return "Cannot find " + host + ": " + ::gai_strerror(problem);
    for (addrinfo const* entry = found; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family != AF_INET && entry->ai_family != AF_INET6) continue;
        asio::ip::tcp::endpoint endpoint;
        endpoint.resize(entry->ai_addrlen);
        std::memcpy(endpoint.data(), entry->ai_addr, entry->ai_addrlen);
        endpoints.push_back(endpoint);
    }
    ::freeaddrinfo(found);
    interleaveFamilies(endpoints);
    return endpoints.empty() ? "Cannot find " + host + ": it has no address" : std::string();
}

using Found = std::function<void(Endpoints endpoints, std::string const& error)>;

// A look-up at work, and who waits for it.
struct LookUp {
    std::chrono::steady_clock::time_point const began = std::chrono::steady_clock::now();
    std::vector<Found> waiting{};  // guarded by the mutex of all
};

struct LookUps {
    std::mutex mutex;
    // Guarded by the mutex.
    std::map<std::string, std::shared_ptr<LookUp>> latest;  // by host
    int atWork = 0;
};

LookUps& lookUps() {
    static auto& lookUps = *new LookUps;  // its threads may outlive any order of destruction
    return lookUps;
}

void conclude(std::string const& host, std::shared_ptr<LookUp> const& lookUp, Endpoints const& endpoints,
              std::string const& error) {
    std::vector<Found> waiting;
    {
        std::lock_guard const lock(lookUps().mutex);
        --lookUps().atWork;
        waiting.swap(lookUp->waiting);
        auto& latest = lookUps().latest;
        if (auto const found = latest.find(host); found != latest.end() && found->second == lookUp) latest.erase(found);
    }
    for (auto const& found : waiting) found(endpoints, error);
}

}  // namespace

void lookUp(std::string const& host, std::uint16_t port, std::shared_ptr<KvMainQueue> const& queue,
            std::function<void(Endpoints endpoints, std::string error)> done) {
    boost::system::error_code noLiteral;
    auto const address = asio::ip::make_address(host, noLiteral);
    if (!noLiteral) return done({{address, port}}, {});
    Found answer = [weak = std::weak_ptr(queue), port, done = std::move(done)](Endpoints endpoints,
                                                                               std::string const& error) {
        auto const target = weak.lock();
        if (!target) return;
        for (auto& endpoint : endpoints) endpoint.port(port);
        target->post([endpoints = std::move(endpoints), error, done] { done(endpoints, error); });
    };
    std::shared_ptr<LookUp> made;
    {
        std::lock_guard const lock(lookUps().mutex);
        auto const& latest = lookUps().latest[host];
        if (latest && std::chrono::steady_clock::now() - latest->began < kShared)
            return latest->waiting.push_back(std::move(answer));
        if (lookUps().atWork < kMostLookUps) {
            ++lookUps().atWork;
            made = lookUps().latest[host] = std::make_shared<LookUp>();
            made->waiting.push_back(std::move(answer));
        } else if (!latest) {
            lookUps().latest.erase(host);
        }
    }
    if (!made) return answer({}, "Cannot find " + host + ": too many look-ups at a time");
    bool const isStarted = startThread("kv.lookup", [host, made] {
        Endpoints endpoints;
        auto const error = askResolver(host, endpoints);
        conclude(host, made, endpoints, error);
    });
    if (!isStarted) conclude(host, made, {}, "Cannot find " + host + ": no thread is left to look it up");
}

}  // namespace kv::net
