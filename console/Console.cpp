#include "console/Console.h"

#include "Classes/Await/KvResult.h"
#include "Classes/Model/KvFailure.h"
#include "Classes/Model/KvPimMetrics.h"
#include "console/CarryOut.h"
#include "console/MetricsServer.h"
#include "console/QueueLoop.h"

#include <array>
#include <csignal>
#include <cstdio>

#include <unistd.h>

namespace kv::console {
namespace {

constexpr std::size_t kLongestLine = 16u << 20;
// The slowest operation is a login: 36 seconds to find a server, 6 to connect.
constexpr std::chrono::seconds kLongestOperation{45};

class Console {
public:
    Console(Session& session, std::chrono::duration<double> linger, MetricsServer* metrics)
        : session_(session), linger_(std::chrono::duration_cast<std::chrono::nanoseconds>(linger)), metrics_(metrics) {}

    void run() {
        session_.output->line({{"event", "ready"}});
        while (!isOver()) {
            std::array<pollfd, 3> others{{{.fd = STDOUT_FILENO, .events = 0, .revents = 0},
                                          {.fd = isReading() ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0},
                                          {.fd = metrics_ ? metrics_->fd() : -1, .events = POLLIN, .revents = 0}}};
            turn(*session_.queue, others);
            auto const& [output, input, metrics] = others;
            if (metrics.revents != 0) metrics_->turn();
            if (output.revents != 0) return;  // nobody is there to read
            if (input.revents != 0) input_.fill();
            carryOutLines();
        }
    }

private:
    bool isReading() const { return !session_.sleep.isActive() && !input_.isEnded(); }

    void carryOutLines() {
        while (!session_.sleep.isActive() && !session_.isQuit) {
            auto const line = input_.next();
            if (!line) break;
            carryOut(session_, *line);
        }
        isInputDone_ = input_.isEnded() && !session_.sleep.isActive();
    }

    bool isOver() {
        if (session_.isQuit || session_.output->isClosed()) return true;
        if (!isInputDone_) return false;
        if (isLingering_) return !timer_.isActive();
        auto const limit = session_.open->lastBegun + kLongestOperation - KvMainQueue::Clock::now();
        if (session_.open->count == 0 || limit.count() <= 0) {
            isLingering_ = true;
            if (linger_.count() == 0) return true;
            timer_ = session_.queue->after(linger_, [] {});
        } else if (!timer_.isActive()) {
            timer_ = session_.queue->after(limit, [] {});
        }
        return false;
    }

    Session& session_;
    std::chrono::nanoseconds const linger_;
    MetricsServer* const metrics_;  // null for none
    InputLines input_{STDIN_FILENO, kLongestLine};
    bool isInputDone_ = false;
    bool isLingering_ = false;
    KvQueueTimer timer_;  // wakes the loop for the end of what it waits for
};

/// Has the library's prints come between the lines of JSON, and none before the first of these: the queue runs later.
void takePrints(Session const& session) {
    KvPimKit::setConsole([queue = session.queue, output = session.output](KvConsoleStream stream, auto const& line) {
        if (stream == KvConsoleStream::error) return KvPimKit::writeToStandardStream(stream, line);
        queue->post([output, text = std::string(line)] { output->print(text); });
    });
}

std::unique_ptr<MetricsServer> serveMetrics(Session& session, std::uint16_t port) {
    auto const text = [&session](bool isOpenMetrics) {
        std::vector<KvPimMetrics> clients;
        if (session.client) clients.push_back(session.client->metrics());
        return isOpenMetrics ? openMetricsText(clients) : prometheusText(clients);
    };
    auto server = std::make_unique<MetricsServer>(session.queue, port, text);
    std::fprintf(stderr, "kvpim: metrics at %s\n", server->url().c_str());
    return server;
}

}  // namespace

int runConsole(ConsoleOptions const& options) {
    std::signal(SIGPIPE, SIG_IGN);
    Session session;
    auto const metrics = options.metricsPort ? serveMetrics(session, *options.metricsPort) : nullptr;
    takePrints(session);
    session.delegate = makeClientDelegate(session.output, options.delegate);
    auto client =
        KvPimKit::create(options.common.appId, clientOptions(options.common, session.queue), session.delegate);
    if (!client) {
        session.output->line({{"event", "createFailed"}});
        std::fprintf(stderr, "kvpim: %s\n", client.error().failure()->cause.c_str());
        return 1;
    }
    session.client = *std::move(client);
    if (!options.logFile.empty()) session.client->setLogFile(options.logFile);
    if (options.logFilters) session.client->setLogFilters(*options.logFilters);
    Console(session, options.linger, metrics.get()).run();
    return 0;
}

}  // namespace kv::console
