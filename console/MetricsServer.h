// Serves metrics over HTTP, on the loopback alone, for Prometheus and for `curl`. It has no thread: its one descriptor
// is waited for along with the others, and nothing of it waits for anybody.
#pragma once

#include "Platform/KvMainQueue.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>

namespace kv::console {

class MetricsServer {
public:
    /// What there is to read at this moment: in OpenMetrics, or else in the older form.
    using Text = std::function<std::string(bool isOpenMetrics)>;

    /// Listens on 127.0.0.1, on a free port where `port` is 0. Throws std::system_error when it cannot.
    MetricsServer(std::shared_ptr<KvMainQueue> queue, std::uint16_t port, Text text);
    ~MetricsServer();
    MetricsServer(MetricsServer const&) = delete;
    MetricsServer& operator=(MetricsServer const&) = delete;

    /// Where the metrics are.
    std::string url() const;
    /// Readable when there is something to do.
    int fd() const { return epoll_.number; }
    /// Does what there is to do, without waiting. What takes long goes on at a later turn.
    void turn();

private:
    struct Descriptor {
        explicit Descriptor(int opened) : number(opened) {}
        Descriptor(Descriptor const&) = delete;
        Descriptor& operator=(Descriptor const&) = delete;
        ~Descriptor();
        int const number;
    };
    struct Visitor;

    void accept();
    void serve(Visitor& visitor);
    bool read(Visitor& visitor);
    std::string answerTo(std::string const& head) const;
    void watch(int operation, int fd, std::uint32_t events, Visitor* visitor) const;
    void forget(Visitor const& visitor);

    std::shared_ptr<KvMainQueue> const queue_;
    Text const text_;
    Descriptor const epoll_, listener_;
    KvQueueTimer pause_;           // of accepting, while the process has no descriptors left
    std::list<Visitor> visitors_;  // oldest first
};

}  // namespace kv::console
