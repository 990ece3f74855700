#include "console/Console.h"

#include "Binding/kvpim.h"
#include "Classes/KvPimKit.h"
#include "console/MetricsServer.h"
#include "console/QueueLoop.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <utility>

#include <boost/json.hpp>
#include <unistd.h>

namespace kv::console {
namespace json = boost::json;
namespace {

constexpr std::size_t kLongestLine = 16u << 20;
// The slowest operation is a login: 36 seconds to find a server, 6 to connect.
constexpr std::chrono::seconds kLongestOperation{45};

using Clock = KvMainQueue::Clock;

// Deeper than what the interface takes: an answer repeats an "id" of any depth that passed.
json::object parsed(std::string_view text) {
    json::parse_options options;
    options.max_depth = 2000;
    return json::parse(text, {}, options).get_object();
}

/// Between the lines and the C interface: what the client says is printed, and this thread is the client's.
class Console {
public:
    Console(std::shared_ptr<KvMainQueue> queue, Output& output, std::chrono::nanoseconds linger)
        : queue_(std::move(queue)), output_(output), linger_(linger) {}

    void serveMetrics(std::uint16_t port) {
        auto const text = [this](bool isOpenMetrics) { return metricsText(isOpenMetrics); };
        metrics_ = std::make_unique<MetricsServer>(queue_, port, text);
        std::fprintf(stderr, "kvpim: metrics at %s\n", metrics_->url().c_str());
    }

    void run(kvpim_client client) {
        client_ = client;
        output_.line({{"event", "ready"}});
        while (!isOver()) {
            std::array<pollfd, 4> others{{{.fd = STDOUT_FILENO, .events = 0, .revents = 0},
                                          {.fd = isReading() ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0},
                                          {.fd = metrics_ ? metrics_->fd() : -1, .events = POLLIN, .revents = 0},
                                          {.fd = kvpim_fd(client_), .events = POLLIN, .revents = 0}}};
            turn(*queue_, others);
            auto const& [output, input, metrics, requests] = others;
            if (requests.revents != 0) work();
            if (metrics.revents != 0) metrics_->turn();
            if (output.revents != 0) return;  // nobody is there to read
            if (input.revents != 0) input_.fill();
            carryOutLines();
        }
    }

private:
    bool isReading() const { return !isAsleep() && !input_.isEnded(); }
    bool isAsleep() const { return sleep_.isActive(); }

    void carryOutLines() {
        while (!isAsleep() && !isEnded_) {
            auto const line = input_.next();
            if (!line) break;
            carryOut(*line);
        }
        isInputDone_ = input_.isEnded() && !isAsleep();
    }

    void carryOut(InputLines::Line const& line) {
        kvpim_error error;
        bool const isHeld = line.text.find('\0') != std::string::npos;  // a text for the interface ends there
        if (line.isTooLong || isHeld) {
            refuse(line, line.isTooLong ? "the line is longer than 16 MiB" : "not JSON: a zero byte");
        } else if (!kvpim_request(client_, line.text.c_str(), &error)) {
            refuse(line, error.text);
        } else {
            lastBegun_ = Clock::now();
            work();
            sleepAsAsked(line.text);
        }
    }

    void refuse(InputLines::Line const& line, char const* why) {
        output_.line({{"error", why}, {"line", line.number}});
    }

    /// The client answers to a "sleep" when its time is over; here no lines are read until then.
    void sleepAsAsked(std::string const& line) {
        if (line.find("sleep") == std::string::npos) return;
        auto const request = parsed(line);
        if (request.at("op") != "sleep") return;
        auto const time = std::chrono::duration<double>(request.at("seconds").to_number<double>());
        sleep_ = queue_->after(std::chrono::duration_cast<std::chrono::nanoseconds>(time), [this] { work(); });
    }

    /// Does the client's work and prints what it says.
    void work() {
        kvpim_poll(client_, KVPIM_AT_ONCE);
        while (auto const message = receive()) output_.print(kvpim_message_text(message.get()));
    }

    using Message = std::unique_ptr<kvpim_message, decltype(&kvpim_message_free)>;
    Message receive() {
        kvpim_message* message = nullptr;
        isEnded_ = kvpim_receive(client_, KVPIM_AT_ONCE, &message) == KVPIM_ENDED;
        return {message, &kvpim_message_free};
    }

    std::string metricsText(bool isOpenMetrics) {
        json::value const id{{"of", "kvpim console --metrics"}};
        json::object const request{{"op", "openMetricsText"}, {"id", id}, {"isPrometheus", !isOpenMetrics}};
        if (!kvpim_request(client_, json::serialize(request).c_str(), nullptr)) return {};
        kvpim_poll(client_, KVPIM_AT_ONCE);
        std::string text;
        while (auto const message = receive()) {
            auto const line = parsed(kvpim_message_text(message.get()));
            auto const* const asked = line.if_contains("id");
            if (asked == nullptr || *asked != id) {
                output_.print(kvpim_message_text(message.get()));
            } else {
                text = line.at("result").get_string();
            }
        }
        return text;
    }

    bool isOver() {
        if (isEnded_ || output_.isClosed()) return true;
        if (!isInputDone_) return false;
        if (isLingering_) return !timer_.isActive();
        auto const limit = lastBegun_ + kLongestOperation - Clock::now();
        if (kvpim_pending(client_) == 0 || limit.count() <= 0) {
            isLingering_ = true;
            if (linger_.count() == 0) return true;
            timer_ = queue_->after(linger_, [] {});
        } else if (!timer_.isActive()) {
            timer_ = queue_->after(limit, [] {});
        }
        return false;
    }

    kvpim_client client_{};
    std::shared_ptr<KvMainQueue> const queue_;  // of what is the console's own
    Output& output_;
    std::chrono::nanoseconds const linger_;
    std::unique_ptr<MetricsServer> metrics_;  // null for none
    InputLines input_{STDIN_FILENO, kLongestLine};
    bool isInputDone_ = false;
    bool isLingering_ = false;
    bool isEnded_ = false;  // by "quit"
    Clock::time_point lastBegun_;
    KvQueueTimer sleep_;
    KvQueueTimer timer_;  // wakes the loop for the end of what it waits for
};

/// Has the library's prints come between the lines of JSON, and none before the first of these: the queue runs later.
void takePrints(std::shared_ptr<KvMainQueue> const& queue, std::shared_ptr<Output> const& output) {
    KvPimKit::setConsole([queue, output](KvConsoleStream stream, auto const& line) {
        if (stream == KvConsoleStream::error) return KvPimKit::writeToStandardStream(stream, line);
        queue->post([output, text = std::string(line)] { output->print(text); });
    });
}

json::object clientOptions(ConsoleOptions const& options) {
    auto const& [appId, env, proxy, record] = options.common;
    json::object fields{{"appId", appId},
                        {"apiServer", env.apiServer},
                        {"collectServer", env.collectServer},
                        {"cachesDirectory", env.cachesDirectory},
                        {"keyStoreDirectory", env.keyStoreDirectory},
                        {"caFile", env.caFile},
                        {"checkThreads", checksThreads()},
                        {"polled", true}};
    fields["network"] = {
        {"proxy", {{"forHttp", proxy.forHttp}, {"forHttps", proxy.forHttps}, {"noProxy", proxy.noProxy}}}};
    fields["recordTo"] = {{"file", record.file}, {"withContents", record.withContents}};
    if (options.delegate) fields["delegate"] = json::value_from(*options.delegate);
    return fields;
}

}  // namespace

int runConsole(ConsoleOptions const& options) {
    std::signal(SIGPIPE, SIG_IGN);
    auto const queue = KvMainQueue::main();
    auto const output = std::make_shared<Output>();
    takePrints(queue, output);
    Console console(queue, *output, std::chrono::duration_cast<std::chrono::nanoseconds>(options.linger));
    if (options.metricsPort) console.serveMetrics(*options.metricsPort);
    kvpim_client client;
    kvpim_error error;
    if (!kvpim_create(json::serialize(clientOptions(options)).c_str(), &client, &error)) {
        if (error.kind == KVPIM_ERROR_ARGUMENT) throw BadUsage(error.text);
        output->line({{"event", "createFailed"}});
        std::fprintf(stderr, "kvpim: %s\n", error.text);
        return 1;
    }
    if (!options.logFile.empty()) KvPimKit::setLogFile(options.logFile);
    if (options.logFilters) KvPimKit::setLogFilters(*options.logFilters);
    console.run(client);
    kvpim_destroy(client);
    return 0;
}

}  // namespace kv::console
