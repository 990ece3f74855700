#include "SocketIO/core/ProtocolCore.h"
#include "support/Json.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

namespace kv::sio {
namespace {

constexpr char kOpen[] = R"(0{"sid":"engine","pingInterval":25000,"pingTimeout":20000})";
constexpr char kConnect[] = R"(40{"sid":"socket"})";

// A core and all that comes of what the server says, a line each.
class Bench final : ProtocolHost {
public:
    std::vector<std::string> lines;

    bool text(std::string_view message) { return goesOn(core_.onText(message, now_)); }
    bool binary(std::string_view bytes) { return goesOn(core_.onBinary(KvBytes(bytes.begin(), bytes.end()))); }
    bool pass(std::chrono::seconds time) { return goesOn(core_.onTime(now_ += time)); }

private:
    bool goesOn(bool goesOn) {
        if (!goesOn) lines.push_back("end " + core_.failure().text);
        return goesOn;
    }
    std::shared_ptr<PacketMemory> const& packetMemory() override {
        memory_ = std::make_shared<PacketMemory>();
        return memory_;
    }
    void onPacket(ReceivedPacket&& packet) override {
        using Kind = ReceivedPacket::Kind;
        std::string line = packet.kind == Kind::connected ? "connected" : packet.kind == Kind::ack ? "ack" : "event";
        if (packet.id) line += ' ' + std::to_string(*packet.id);
        if (!packet.name.empty()) line.append(" ").append(packet.name);
        if (packet.kind != Kind::connected) line += ' ' + packet.unread + json::serialize(packet.items);
        for (auto const& data : packet.attachments) line += " <" + std::string(data->begin(), data->end()) + '>';
        lines.push_back(std::move(line));
    }
    bool isAwaited(std::string_view event) override { return event != "nobody's"; }
    void sendText(std::string_view text) override { lines.push_back("send " + std::string(text)); }

    ProtocolCore core_{*this};
    ProtocolCore::Time now_{};
    std::shared_ptr<PacketMemory> memory_;
};

TEST(ProtocolCore, MakesOfAConversationWhatTheTranscriptHas) {
    std::optional<Bench> bench;
    std::vector<std::string> expected;
    auto transcript = linesOf(PROTOCOL_TRANSCRIPT);
    transcript.emplace_back("NEW end");
    for (std::size_t at = 3; at < transcript.size(); ++at) {  // behind the head of the file
        auto const& line = transcript[at];
        auto const rest = line.substr(std::min<std::size_t>(2, line.size()));
        if (line.empty()) continue;
        if (line[0] == '>') {
            bench->text(rest);
        } else if (line[0] == '#') {
            bench->binary(rest);
        } else if (line[0] == '+') {
            bench->pass(std::chrono::seconds(std::stoi(line)));
        } else if (line[0] == '<') {
            expected.push_back(rest);
        } else {
            if (bench) {
                EXPECT_EQ(bench->lines, expected) << "before line " << at + 1;
            }
            bench.emplace();
            if (!line.starts_with("NEW")) bench->text(kOpen);
            if (line.starts_with("CONNECTED")) bench->text(kConnect);
            bench->lines.clear();
            expected.clear();
        }
    }
}

// A message that begins with '#' is binary; the last one is refused.
TEST(ProtocolCore, HoldsSoMuchAndNoMore) {
    std::string const mebibytes(9u << 20, ' '), early = "42[\"a\"]" + mebibytes;
    for (auto const& [messages, cause] : std::vector<std::pair<std::vector<std::string>, char const*>>{
             {{kOpen, early, early}, "too much before the namespace was connected"},
             {{kOpen, kConnect, "452-[\"a\"]", "#" + mebibytes, "#" + mebibytes}, "over the limit"}}) {
        Bench bench;
        std::size_t taken = 0;
        for (auto const& m : messages) taken += m[0] == '#' ? bench.binary(m.substr(1)) : bench.text(m);
        EXPECT_EQ(taken, messages.size() - 1);
        EXPECT_NE(bench.lines.back().find(cause), std::string::npos) << bench.lines.back();
    }
}

}  // namespace
}  // namespace kv::sio
