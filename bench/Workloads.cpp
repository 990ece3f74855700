#include "bench/Workloads.h"

#include "bench/Measure.h"

#include <chrono>
#include <memory>
#include <utility>

namespace bench {
namespace {

constexpr int kDeep = 64, kShallow = 8;
constexpr std::size_t kLoginsAtATime = 50;

struct Pipeline {
    Client& client;
    long const count;
    Content const content;
    Client::Done done;
    std::vector<double>* latencies = nullptr;
    long sent = 0, answered = 0;
    double sentAt = 0;

    void send() {
        ++sent;
        if (latencies) sentAt = wallSeconds();
        client.send(content, [this](std::int64_t code) { onAnswer(code); });
    }
    void onAnswer(std::int64_t code) {
        if (code != 0) fail("a request was answered with %lld", static_cast<long long>(code));
        if (latencies) latencies->push_back((wallSeconds() - sentAt) * 1e6);
        if (++answered == count) return done();
        if (sent < count) send();
    }
};

void request(Client& client, long count, int depth, Content content, std::vector<double>* latencies) {
    Pipeline pipeline{client, count, content, {}, latencies};
    runUntilDone([&](Client::Done done) {
        if (count == 0) return done();
        pipeline.done = std::move(done);
        for (long i = 0; i < std::min<long>(depth, count); ++i) pipeline.send();
    });
}

void login(Client& client) {
    runUntilDone([&](Client::Done done) { client.login(std::move(done)); });
}

void logout(Client& client) {
    runUntilDone([&](Client::Done done) { client.logout(std::move(done)); });
}

void rest(std::chrono::seconds duration) { kv::KvMainQueue::main()->runFor(duration); }

template <class Run>
void measure(std::string const& name, Subject const& subject, Amount amount, Run const& run) {
    auto const client = subject.makeClient();
    login(*client);
    run(*client, amount.warmUp, nullptr);
    std::vector<double> latencies;
    Measurement measurement;
    run(*client, amount.operations, &latencies);
    measurement.stop();
    if (!latencies.empty()) measurement.addLatencies(latencies);
    measurement.print(name, subject.name(), amount.operations);
}

// Connects and leaves, one time after the other, within one run of the queue: an application does not leave its loop.
class Cycles {
public:
    Cycles(Subject const& subject, std::vector<double>& latencies) : subject_(subject), latencies_(latencies) {}

    void run(long count) {
        runUntilDone([&](Client::Done done) {
            if (count == 0) return done();
            left_ = count;
            done_ = std::move(done);
            begin();
        });
        client_.reset();
    }

private:
    void begin() {
        auto const start = wallSeconds();
        client_ = subject_.makeClient();
        client_->login([this, start] {
            latencies_.push_back((wallSeconds() - start) * 1e6);
            client_->logout([this] { end(); });
        });
    }
    void end() {
        if (--left_ == 0) return done_();
        kv::KvMainQueue::main()->post([this] { begin(); });
    }

    Subject const& subject_;
    std::vector<double>& latencies_;
    long left_ = 0;
    Client::Done done_;
    std::unique_ptr<Client> client_;
};

void measureConnect(std::string const& name, Subject const& subject, Amount amount) {
    std::vector<double> latencies;
    Cycles cycles(subject, latencies);
    cycles.run(1);
    auto const coldMilliseconds = millisecondsSinceStart();
    auto const coldCpu = cpuSeconds();
    cycles.run(amount.warmUp);
    latencies.clear();
    Measurement measurement;
    cycles.run(amount.operations);
    measurement.stop();
    measurement.addLatencies(latencies);
    measurement.add("cold_ms", coldMilliseconds);
    measurement.add("cold_cpu_ms", coldCpu * 1e3);
    measurement.print(name, subject.name(), amount.operations);
}

void measureManyClients(std::string const& name, Subject const& subject, Amount amount) {
    auto const first = subject.makeClient();
    login(*first);
    logout(*first);
    auto const before = statusOf("VmRSS:");
    std::vector<std::unique_ptr<Client>> clients;
    Measurement measurement;
    for (long i = 0; i < amount.operations; ++i) clients.push_back(subject.makeClient());
    loginAll(clients, kLoginsAtATime);
    measurement.stop();
    rest(std::chrono::seconds(1));
    auto const grown = static_cast<double>(statusOf("VmRSS:") - before);
    measurement.add("rss_kb_per_conn", grown / static_cast<double>(amount.operations));
    measurement.print(name, subject.name(), amount.operations);
}

// All lose their connection at once, and come back when the library thinks it time.
void measureReconnect(std::string const& name, Subject const& subject, Amount amount) {
    std::vector<std::unique_ptr<Client>> clients;
    for (long i = 0; i < amount.operations; ++i) clients.push_back(subject.makeClient());
    loginAll(clients, kLoginsAtATime);
    Measurement measurement;
    std::size_t back = 0;
    runUntilDone([&](Client::Done const& done) {
        for (auto const& client : clients)
            client->loseConnection([&, done] {
                if (++back == clients.size()) done();
            });
    });
    measurement.stop();
    measurement.print(name, subject.name(), amount.operations);
}

}  // namespace

void requestPipelined(Client& client, long count, int depth, Content content) {
    request(client, count, depth, content, nullptr);
}

void receiveMessages(Client& client, long count, Content content) {
    long received = 0;
    std::size_t bytes = 0;
    client.onMessage = [&](std::size_t size) {
        ++received;
        bytes += size;
    };
    runUntilDone([&](Client::Done done) {
        if (count == 0) return done();
        client.askForMessages(count, content, std::move(done));
    });
    client.onMessage = nullptr;
    if (received != count || bytes != static_cast<std::size_t>(count) * bytesOf(content)) {
        fail("received %ld messages of %zu bytes together", received, bytes);
    }
}

void withEach(Clients const& clients, std::size_t atATime,
              std::function<void(Client& client, Client::Done done)> const& action) {
    std::size_t begun = 0, ended = 0;
    runUntilDone([&](Client::Done const& done) {
        // Lives as long as the actions that hold it.
        auto const next = std::make_shared<std::function<void()>>();
        *next = [&, done, weak = std::weak_ptr(next)] {
            if (begun == clients.size()) return;
            action(*clients[begun++], [&, done, again = weak.lock()] {
                if (++ended == clients.size()) return done();
                (*again)();
            });
        };
        for (std::size_t i = 0; i < atATime; ++i) (*next)();
    });
}

void loginAll(Clients const& clients, std::size_t atATime) {
    withEach(clients, atATime, [](Client& client, Client::Done done) { client.login(std::move(done)); });
}

bool runWorkload(std::string const& workload, Subject const& subject, Amount amount) {
    auto const name = subject.titled(workload);
    using Latencies = std::vector<double>*;
    auto const requests = [&](int depth, Content content, bool withLatencies) {
        measure(name, subject, amount, [=](Client& client, long count, Latencies latencies) {
            request(client, count, depth, content, withLatencies ? latencies : nullptr);
        });
        return true;
    };
    auto const messages = [&](Content content) {
        measure(name, subject, amount,
                [=](Client& client, long count, Latencies) { receiveMessages(client, count, content); });
        return true;
    };
    if (workload == "ack_pipelined") return requests(kDeep, Content::text, false);
    if (workload == "ack_sequential") return requests(1, Content::text, true);
    if (workload == "send_binary32k") return requests(kShallow, Content::binary, false);
    if (workload == "recv_text") return messages(Content::text);
    if (workload == "recv_binary32k") return messages(Content::binary);
    if (workload == "connect") return measureConnect(name, subject, amount), true;
    if (workload == "reconnect") return measureReconnect(name, subject, amount), true;
    if (workload == "many_clients") return measureManyClients(name, subject, amount), true;
    return false;
}

}  // namespace bench
