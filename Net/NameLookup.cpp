#include "Net/NameLookup.h"

#include "Platform/KvThread.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include <boost/asio/ip/address.hpp>
#include <netdb.h>

namespace kv::net {
namespace asio = boost::asio;
namespace {

constexpr int kMostLookUps = 64;  // at a time; more would only pile up behind a dead name server
std::atomic<int> lookUps{0};

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

std::string askResolver(std::string const& host, std::uint16_t port, Endpoints& endpoints) {
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
        endpoint.port(port);
        endpoints.push_back(endpoint);
    }
    ::freeaddrinfo(found);
    interleaveFamilies(endpoints);
    return endpoints.empty() ? "Cannot find " + host + ": it has no address" : std::string();
}

}  // namespace

void lookUp(std::string const& host, std::uint16_t port, std::shared_ptr<KvMainQueue> const& queue,
            std::function<void(Endpoints endpoints, std::string error)> done) {
    boost::system::error_code noLiteral;
    auto const address = asio::ip::make_address(host, noLiteral);
    if (!noLiteral) return done({{address, port}}, {});
    auto const answer = [weak = std::weak_ptr(queue), done = std::move(done)](Endpoints endpoints, std::string error) {
        auto const target = weak.lock();
        if (!target) return;
        target->post([endpoints = std::move(endpoints), error = std::move(error), done] { done(endpoints, error); });
    };
    if (lookUps.fetch_add(1) >= kMostLookUps) {
        --lookUps;
        return answer({}, "Cannot find " + host + ": too many look-ups at a time");
    }
    bool const isStarted = startThread("kv.lookup", [host, port, answer] {
        Endpoints endpoints;
        auto error = askResolver(host, port, endpoints);
        --lookUps;
        answer(std::move(endpoints), std::move(error));
    });
    if (isStarted) return;
    --lookUps;
    answer({}, "Cannot find " + host + ": no thread is left to look it up");
}

}  // namespace kv::net
