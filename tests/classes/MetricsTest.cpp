// What is counted of a session whose traffic is known, and how it is printed.
#include "Classes/Internal/KvMetricTable.h"
#include "Classes/Model/KvPimMetrics.h"
#include "Person.h"
#include "support/ScriptedServer.h"

#include <fstream>
#include <sstream>

namespace kv::test {
namespace {

using Outcome = KvPimRequestOutcome;

class MetricsTest : public EveryEngine {
protected:
    bool waitFor(std::function<bool()> const& holds) { return runUntil(*queue, holds); }
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create(KvMainQueue::Time::manual);
};
ON_EVERY_ENGINE(MetricsTest);

TEST_P(MetricsTest, TellExactlyWhatHappened) {
    std::atomic<bool> mayHangUp{false};
    ScriptedServer server([&](ScriptedPeer& peer) {
        peer.login();
        if (peer.number() > 0) return static_cast<void>(peer.readToEnd());
        peer.acknowledge(peer.readEvent(), {{{"result", 0}}});
        peer.acknowledge(peer.readEvent(), {{{"result", 5}}});
        peer.readEvent();
        peer.emit("nobodyListens");
        peer.acknowledge({.id = 999, .items = {}, .attachments = {}}, {1});
        while (!mayHangUp) peer.sleep(1ms);
        peer.hangUp();
    });
    auto const before = processMetrics();
    {
        std::atomic<bool> isOver{false};
        std::thread reader([&] {
            while (!isOver) processMetrics();
        });
        Person dora(server.url(), "dora", queue, GetParam(),
                    [](KvPimOptions& options) { options.maxQueuedBytes = 1000; });
        auto& kit = *dora.kit;
        auto const send = [&](std::string text) { kit.sendMessageToPeer(std::move(text), "bob", [](std::int64_t) {}); };
        send("too early");
        EXPECT_EQ(dora.codeOf([&](auto done) { kit.loginByToken(kToken, 1, "a/b", done); }), 3);
        queue->advance(3s);
        EXPECT_TRUE(dora.login());
        send("taken");
        send("refused");
        EXPECT_TRUE(waitFor([&] { return kit.metrics().pendingRequests == 0; }));
        send("not answered");
        EXPECT_TRUE(waitFor([&] { return kit.metrics().ignored[KvPimIgnored::unasked] == 1; }));
        auto const busy = kit.metrics();
        EXPECT_EQ(busy.sent.frames, 4u) << "the namespace, and three requests";
        EXPECT_EQ(busy.received.frames, 7u) << "the session, the namespace, and:";
        EXPECT_EQ(busy.received.messages, 5u) << "two events and three answers";
        send(std::string(1001, 'x'));
        queue->advance(2s);
        EXPECT_EQ(kit.metrics().oldestRequest, 2s);
        EXPECT_EQ(kit.metrics().pendingRequests, 2u);
        queue->advance(4s);
        mayHangUp = true;
        EXPECT_TRUE(waitFor([&] { return dora.kit->connectionState() == KvPimConnectionStateDisconnected; }));
        send("lost");
        queue->advance(1s);
        EXPECT_TRUE(waitFor([&] { return dora.kit->connectionState() == KvPimConnectionStateConnected; }));
        queue->advance(5s);

        auto const metrics = kit.metrics();
        EXPECT_EQ(metrics.requests.numbers, (decltype(metrics.requests.numbers){1, 1, 1, 1, 1, 1, 0}));
        EXPECT_EQ(metrics.unsent.numbers, (decltype(metrics.unsent.numbers){1, 1, 0, 0}));
        EXPECT_EQ(metrics.ignored.numbers, (decltype(metrics.ignored.numbers){1, 0, 0, 1, 0}));
        EXPECT_EQ(metrics.logins[KvPimLoginErrorOk] + metrics.logins[KvPimLoginErrorInvalidArgument], 2u);
        EXPECT_EQ(metrics.roundTrips.counts[0], 2u);
        EXPECT_EQ(metrics.reconnectionTimes.total, 1s);
        EXPECT_EQ(metrics.reconnectionTimes.counts[10], 1u);
        EXPECT_EQ(metrics.connectionEnds[KvPimConnectionEnd::broken], 1u);
        EXPECT_EQ(metrics.stateTimes.numbers, (decltype(metrics.stateTimes.numbers){0s, 4s, 0s, 11s, 0s}));
        EXPECT_EQ(metrics.clients[KvPimConnectionStateConnected], 1u);
        EXPECT_EQ(metrics.sent.messages, 3u);
        EXPECT_EQ(metrics.toSend, KvPimMetrics::Waiting{});
        EXPECT_EQ(metrics.heartbeat.announced, 25s);
        EXPECT_EQ(dora.codeOf([&](auto done) { kit.logoutWithCompletion(done); }), 0);
        EXPECT_EQ(kit.metrics().connectionEnds[KvPimConnectionEnd::left], 1u);
        isOver = true;
        reader.join();
    }
    auto const after = processMetrics();
    EXPECT_EQ(after.requests[Outcome::noRoom] - before.requests[Outcome::noRoom], 1u) << "though the client is gone";
    EXPECT_EQ(after.stateTimes[KvPimConnectionStateConnected] - before.stateTimes[KvPimConnectionStateConnected], 11s);
    EXPECT_EQ(after.clients, before.clients);
    EXPECT_EQ(after.pendingRequests, before.pendingRequests);
}

TEST_P(MetricsTest, PingsAreMeasuredAsTheyAreRead) {
    ScriptedServer server([&](ScriptedPeer& peer) {
        peer.connect({.interval = 30ms, .timeout = 20s});
        peer.emit("loginSuccess");
        for (int i = 0; i < 3; ++i) {
            peer.sleep(30ms);
            peer.send(textFrame("2"));
        }
        peer.readToEnd();
    });
    Person dora(server.url(), "dora", KvMainQueue::create(), GetParam());
    ASSERT_TRUE(dora.login());
    EXPECT_TRUE(runUntil(*dora.queue, [&] {
        auto const& beat = dora.kit->metrics().heartbeat;
        return beat.pings == 3 && beat.answerTime > 0ns;
    }));
    auto const beat = dora.kit->metrics().heartbeat;
    EXPECT_EQ(beat.announced, 30ms);
    EXPECT_GE(beat.longestInterval, 30ms);
    EXPECT_LE(beat.interval, beat.longestInterval);
}

TEST(MetricsText, IsOpenMetrics) {
    KvPimMetrics one;
    one.appId = "app \"1\"";
    one.userId = "back\\slash\n";
    one.sent.bytes = 7;
    one.stateTimes[KvPimConnectionStateConnected] = 1500ms;
    one.roundTrips.counts = {1, 0, 2};
    one.roundTrips.total = 3ms;
    auto other = one;
    other.userId = "bob";
    auto const text = openMetricsText({one, other, one}, one);
    std::string const labels = R"({app="app \"1\"",user="back\\slash\n")";
    for (auto const& line :
         {"# TYPE kvpim_sent_bytes counter\n# UNIT kvpim_sent_bytes bytes\nkvpim_sent_bytes_total" + labels + "} 14\n",
          "kvpim_state_seconds_total" + labels + ",state=\"connected\"} 3\n",
          "kvpim_request_duration_seconds_bucket" + labels + ",le=\"0.001\"} 2\nkvpim_request_duration_seconds_bucket" +
              labels + ",le=\"0.002\"} 6\n",
          "_count" + labels + "} 6\nkvpim_request_duration_seconds_sum" + labels + "} 0.006\n",
          std::string("kvpim_process_sent_bytes_total 7\n"),
          std::string("kvpim_process_request_duration_seconds_bucket{le=\"+Inf\"} 3\n")})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    EXPECT_TRUE(text.ends_with("\n# EOF\n"));
    auto const older = prometheusText({}, one);
    EXPECT_NE(older.find("# TYPE kvpim_process_sent_bytes_total counter\nkvpim_process_sent_bytes_total 7\n"),
              std::string::npos);
    EXPECT_EQ(older.find("EOF") & older.find("UNIT"), std::string::npos);
}

TEST(MetricsText, AndItsPageHasEachMetric) {
    std::ifstream file(METRICS_PAGE);
    std::string const page{std::istreambuf_iterator<char>(file), {}};
    for (auto const& metric : metricTable()) {
        std::ostringstream row;
        row << "| `" << metric.name << (metric.label.empty() ? "" : "{" + std::string(metric.label) + "}") << "` | "
            << metric.type() << " | " << metric.unit << (metric.unit.empty() ? "| " : " | ") << metric.help << " |\n";
        EXPECT_NE(page.find(row.str()), std::string::npos) << row.str();
        for (auto const value : metric.labelled)
            EXPECT_TRUE(value.empty() || page.find('`' + std::string(value) + '`') != std::string::npos) << value;
    }
}

}  // namespace
}  // namespace kv::test
