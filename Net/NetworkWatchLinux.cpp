#include "Net/NetworkWatch.h"
#include "Platform/KvQueueContext.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

namespace kv::net {
namespace asio = boost::asio;
using namespace std::chrono_literals;
using asio::posix::stream_descriptor;
namespace {

constexpr std::chrono::nanoseconds kQuiet = 150ms;         // a change is over when nothing has changed for so long
constexpr std::chrono::nanoseconds kLongestBurst = 500ms;  // but is told at last
constexpr std::chrono::nanoseconds kLeastSleep = 2s;
constexpr int kMostReadsInOneTurn = 64;

// What one message of the kernel carries, behind its own header; null when it is too short for that.
template <class Body>
Body const* bodyOf(nlmsghdr const& message) {
    return message.nlmsg_len >= NLMSG_LENGTH(sizeof(Body)) ? static_cast<Body const*>(NLMSG_DATA(&message)) : nullptr;
}

// Interface and address, as bytes.
std::string addressIn(nlmsghdr const& message, ifaddrmsg const& body) {
    std::string address(reinterpret_cast<char const*>(&body.ifa_index), sizeof body.ifa_index);
    auto left = IFA_PAYLOAD(&message);
    for (auto const* part = IFA_RTA(&body); RTA_OK(part, left); part = RTA_NEXT(part, left)) {
        if (part->rta_type != IFA_ADDRESS && part->rta_type != IFA_LOCAL) continue;
        address.append(static_cast<char const*>(RTA_DATA(part)), RTA_PAYLOAD(part));
    }
    return address;
}

std::chrono::nanoseconds timeOf(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// How long the machine has slept since it was started.
std::chrono::nanoseconds slept() { return timeOf(CLOCK_BOOTTIME) - timeOf(CLOCK_MONOTONIC); }

class Watch;

struct Listener {
    std::weak_ptr<KvMainQueue> const engine, queue;
    std::function<void()> const changed;
    std::function<void(std::string_view line)> const log;
    std::shared_ptr<Watch> watch;

    ~Listener();
};

// Made by any thread; everything else is the engine queue's, its end too.
class Watch final : public std::enable_shared_from_this<Watch> {
public:
    explicit Watch(std::shared_ptr<KvMainQueue> const& engine)
        : engine_(engine), news_(contextOf(*engine)), alarm_(contextOf(*engine)) {}

    void add(Listener const* key, std::weak_ptr<Listener> const& listener, std::weak_ptr<KvMainQueue> const& queue) {
        auto const problem = std::exchange(isBegun_, true) ? std::string() : begin();
        listeners_[key] = {listener, queue};
        auto const target = queue.lock();
        if (problem.empty() || !target) return;
        target->post([listener, problem] {
            auto const told = listener.lock();
            if (told && told->log) told->log("Cannot watch the network: " + problem);
        });
    }
    void remove(Listener const* key) { listeners_.erase(key); }

private:
    // What the kernel tells of links, addresses and routes.
    std::string begin() {
        slept_ = slept();
        int const news = ::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_groups =
            RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
        bool const hears = news >= 0 && ::bind(news, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
        auto problem = take(news_, news, hears, &Watch::onNews);
        // It never rings, but ends its wait whenever the time of day is set, which waking up does too: time went on.
        int const alarm = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
        itimerspec never{};
        never.it_value.tv_sec = std::numeric_limits<time_t>::max();
        constexpr int kEndsWhenSet = TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET;
        bool const isSet = alarm >= 0 && ::timerfd_settime(alarm, kEndsWhenSet, &never, nullptr) == 0;
        auto const other = take(alarm_, alarm, isSet, &Watch::onAlarm);
        return problem.empty() ? other : problem;
    }

    std::string take(stream_descriptor& descriptor, int fd, bool isReady, void (Watch::*onReadable)()) {
        boost::system::error_code error(errno, boost::system::system_category());
        if (isReady) descriptor.assign(fd, error);
        if (descriptor.is_open()) {
            await(descriptor, onReadable);
            return {};
        }
        if (fd >= 0) ::close(fd);
        return error.message();
    }

    void await(stream_descriptor& descriptor, void (Watch::*onReadable)()) {
        auto const handler = [weak = weak_from_this(), onReadable](boost::system::error_code error) {
            if (auto const self = weak.lock(); self && !error) (self.get()->*onReadable)();
        };
        descriptor.async_wait(stream_descriptor::wait_read, handler);
    }

    void onNews() {
        alignas(nlmsghdr) std::array<char, 16384> buffer;
        bool isChange = false;
        for (int i = 0; i < kMostReadsInOneTurn; ++i) {
            auto const size = ::recv(news_.native_handle(), buffer.data(), buffer.size(), 0);
            if (size < 0 && errno == ENOBUFS) {  // there was more than the kernel keeps: anything may have changed
                links_.clear();
                addresses_.clear();
                isChange = true;
                continue;
            }
            if (size <= 0) break;
            auto left = static_cast<unsigned>(size);
            for (auto const* message = reinterpret_cast<nlmsghdr const*>(buffer.data()); NLMSG_OK(message, left);
                 message = NLMSG_NEXT(message, left)) {
                isChange |= isChangeIn(*message);
            }
        }
        await(news_, &Watch::onNews);
        if (isChange) onChange();
    }

    // Much of what the kernel tells is none: scans for wireless networks, addresses that are confirmed.
    bool isChangeIn(nlmsghdr const& message) {
        switch (message.nlmsg_type) {
            case RTM_NEWLINK:
            case RTM_DELLINK: {
                auto const* link = bodyOf<ifinfomsg>(message);
                if (link == nullptr || link->ifi_family != AF_UNSPEC) return false;
                auto const [found, isUnknown] = links_.try_emplace(link->ifi_index);
                bool const isGone = message.nlmsg_type == RTM_DELLINK;
                auto const now = isGone ? 0 : link->ifi_flags & (IFF_UP | IFF_RUNNING);
                auto const before = std::exchange(found->second, now);
                if (isGone) links_.erase(found);
                return isUnknown || before != now;
            }
            case RTM_NEWADDR:
            case RTM_DELADDR: {
                auto const* body = bodyOf<ifaddrmsg>(message);
                if (body == nullptr || (body->ifa_flags & IFA_F_TENTATIVE) != 0) return false;
                auto address = addressIn(message, *body);
                if (message.nlmsg_type == RTM_NEWADDR) return addresses_.insert(std::move(address)).second;
                addresses_.erase(address);
                return true;
            }
            case RTM_NEWROUTE:
            case RTM_DELROUTE: {
                // The ways to everywhere, or to a half of it, as tunnels have them: others come and go with links and
                // addresses, or are the business of machines that route for others.
                auto const* route = bodyOf<rtmsg>(message);
                return route != nullptr && route->rtm_type == RTN_UNICAST && route->rtm_dst_len <= 1 &&
                       (route->rtm_flags & RTM_F_CLONED) == 0;
            }
            default:
                return false;
        }
    }

    void onAlarm() {
        std::uint64_t times = 0;
        [[maybe_unused]] auto const read = ::read(alarm_.native_handle(), &times, sizeof times);
        await(alarm_, &Watch::onAlarm);
        auto const before = std::exchange(slept_, slept());
        if (slept_ - before >= kLeastSleep) onChange();
    }

    void onChange() {
        auto const engine = engine_.lock();
        auto const now = engine->now();
        if (!timer_.isActive()) burstEnds_ = now + kLongestBurst;
        timer_ = engine->after(std::min<std::chrono::nanoseconds>(kQuiet, burstEnds_ - now), [weak = weak_from_this()] {
            if (auto const self = weak.lock()) self->tell();
        });
    }

    void tell() {
        for (auto const& [key, entry] : listeners_) {
            auto const queue = entry.queue.lock();
            if (!queue) continue;
            queue->post([weak = entry.listener] {
                if (auto const listener = weak.lock()) listener->changed();
            });
        }
    }

    struct Entry {
        std::weak_ptr<Listener> listener;  // locked on its own queue only
        std::weak_ptr<KvMainQueue> queue;
    };

    std::weak_ptr<KvMainQueue> const engine_;
    stream_descriptor news_, alarm_;
    bool isBegun_ = false;
    std::map<Listener const*, Entry> listeners_;
    std::map<int, unsigned> links_;    // those that were heard of: whether they are up, and carry
    std::set<std::string> addresses_;  // likewise
    std::chrono::nanoseconds slept_{};
    KvMainQueue::Clock::time_point burstEnds_;
    KvQueueTimer timer_;
};

Listener::~Listener() {
    auto const target = engine.lock();
    if (target) target->post([ending = std::move(watch), key = this] { ending->remove(key); });
}

std::shared_ptr<Watch> watchOf(std::shared_ptr<KvMainQueue> const& engine) {
    static std::mutex mutex;
    static auto& watches = *new std::map<KvMainQueue const*, std::weak_ptr<Watch>>;  // outlives every static client
    std::lock_guard lock(mutex);
    auto watch = watches[engine.get()].lock();
    if (watch) return watch;
    std::erase_if(watches, [](auto const& entry) { return entry.second.expired(); });
    watch = std::make_shared<Watch>(engine);
    watches[engine.get()] = watch;
    return watch;
}

}  // namespace

std::shared_ptr<void> watchNetwork(std::shared_ptr<KvMainQueue> const& engine,
                                   std::shared_ptr<KvMainQueue> const& queue, std::function<void()> changed,
                                   std::function<void(std::string_view line)> log) {
    std::shared_ptr<Listener> listener(
        new Listener{engine, queue, std::move(changed), std::move(log), watchOf(engine)});
    engine->post([watch = listener->watch, key = listener.get(), weak = std::weak_ptr(listener),
                  target = std::weak_ptr(queue)] { watch->add(key, weak, target); });
    return listener;
}

}  // namespace kv::net
