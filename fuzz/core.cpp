// The protocol core, from the bytes of a server to packets and acknowledgements, over many messages with time passing.
//
// An input begins with four characters: "r" for frames as they are, anything else for lines that become frames (see
// ServerFrames.h); "k" or "d" for compression that keeps or drops its context, anything else for none; how the bytes
// are cut; how fast time passes.
#include "Platform/KvJsonText.h"
#include "Platform/KvMainQueue.h"
#include "Platform/KvUtf8.h"
#include "SocketIO/AckTable.h"
#include "SocketIO/core/ProtocolCore.h"
#include "SocketIO/core/WebSocketCodec.h"
#include "fuzz/support/ExactJson.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/ServerFrames.h"

#include <algorithm>
#include <string>
#include <vector>

#include <boost/json/serialize.hpp>

namespace kv::fuzz {
namespace {

namespace json = boost::json;
using Bytes = std::span<std::uint8_t const>;
using Transcript = std::vector<std::string>;
using std::chrono::seconds;

std::string textOf(Bytes bytes) { return {reinterpret_cast<char const*>(bytes.data()), bytes.size()}; }

struct Choices {
    char compression;
    std::uint8_t cut;
    std::uint8_t pace;
};

/// All values of a packet that stand for bytes.
void describeBinary(json::value const& value, SocketData const& data, std::string& out) {
    if (auto const bytes = data.binary(value)) out.append(" <").append(textOf(*bytes)).append(">");
    if (auto const* items = value.if_array()) {
        for (auto const& item : *items) describeBinary(item, data, out);
    } else if (auto const* object = value.if_object()) {
        for (auto const& entry : *object) describeBinary(entry.value(), data, out);
    }
}

/// What is written must be read as the same again.
void requireRoundTrip(sio::ReceivedPacket const& packet) {
    if (!std::ranges::all_of(packet.items, isExact)) return;
    SocketItems items;
    items.values = json::array(packet.items, json::storage_ptr());
    items.attachments = packet.attachments;
    std::string written;
    sio::writeEvent(written, packet.name, items, packet.id);
    require(isValidUtf8(written), "a written packet is UTF-8");
    sio::PacketHeader header;
    require(sio::readPacketHeader(std::string_view(written).substr(1), header).empty(),
            "a written packet has a header");
    require(header.id == packet.id && header.attachments == packet.attachments.size(), "the header says what it did");
    json::value read;
    require(readJson(header.json, {}, read).empty(), "a written packet is JSON");
    items.values.insert(items.values.begin(), json::value(json::string_view(packet.name)));
    require(read == items.values, "a written packet has the same items");
}

/// Acknowledgements of which some ask for others, or answer them, when they end.
class Acknowledgements {
public:
    explicit Acknowledgements(Transcript& transcript) : transcript_(transcript) {
        for (std::size_t i = 0; i < kFirst; ++i) add(seconds(i % 7));
    }
    void answer(std::optional<std::uint64_t> id, SocketData const& data) { table_->answer(id, data, queue_->now()); }
    void pass(seconds time) { queue_->advance(time); }
    void requireAllEnded() {
        constexpr seconds kEver{2'000'000'000};
        pass(kEver);
        require(table_->size() == 0, "no acknowledgement is left");
        for (int const count : ends_) require(count == 1, "an acknowledgement ends once");
    }

private:
    static constexpr std::size_t kFirst = 8, kMost = 24;

    void add(seconds timeout) {
        auto const number = ends_.size();
        ends_.push_back(0);
        auto const pending = table_->add(timeout, [this, number](SocketData const& data) {
            ++ends_[number];
            transcript_.push_back("ack " + std::to_string(number) + ' ' + json::serialize(data.items()));
            if (number % 3 == 1 && ends_.size() < kMost) add(seconds(number % 5));
            if (number % 4 == 2) table_->answer(number / 2, data, queue_->now());
        });
        require(pending.id == number, "ids count up");
    }

    Transcript& transcript_;
    std::shared_ptr<KvMainQueue> const queue_ = KvMainQueue::create(KvMainQueue::Time::manual);
    std::shared_ptr<sio::AckTable> const table_ = std::make_shared<sio::AckTable>(queue_);
    std::vector<int> ends_;
};

/// One connection that writes down all that happens.
class Session final : public sio::ProtocolHost {
public:
    explicit Session(Choices const& choices) : pace_(choices.pace) {
        auto const context =
            choices.compression == 'k' ? sio::Inflater::Context::kept : sio::Inflater::Context::dropped;
        if (choices.compression == 'k' || choices.compression == 'd') reader_.setInflater(sio::Inflater(context));
    }

    /// Reads bytes that end where the memory ends. Returns whether the connection goes on.
    bool read(std::vector<std::uint8_t> const& piece) {
        Bytes input(piece);
        for (;;) {
            switch (reader_.next(input)) {
                case sio::FrameReader::Step::needMore:
                    require(input.empty(), "all bytes are taken");
                    return true;
                case sio::FrameReader::Step::failed:
                    require(!reader_.error().empty(), "a failure has a text");
                    return end(reader_.error() + ' ' + std::to_string(static_cast<int>(reader_.closeCode())));
                case sio::FrameReader::Step::message:
                    if (!onMessage()) return false;
            }
        }
    }

    Transcript finish() {
        acknowledgements_.requireAllEnded();
        return std::move(transcript_);
    }

private:
    bool onMessage() {
        auto const step = seconds(pace_ == 0 ? 0 : ++messages_ * 7 % pace_);
        now_ += step;
        acknowledgements_.pass(step);
        if (!core_.onTime(now_)) return end(core_.failure().text);
        switch (reader_.opcode()) {
            case sio::WsOpcode::text:
                return core_.onText(reader_.text(), now_) || end(core_.failure().text);
            case sio::WsOpcode::binary:
                return core_.onBinary(reader_.takePayload()) || end(core_.failure().text);
            case sio::WsOpcode::close: {
                auto const close = sio::readClose(reader_.text());
                return end("closed: " + close.text + ' ' + std::to_string(static_cast<int>(close.answer)));
            }
            default:
                transcript_.push_back("control " + textOf(reader_.payload()));
                return true;
        }
    }

    bool end(std::string const& reason) {
        require(!reason.empty(), "an end has a reason");
        transcript_.push_back("end " + reason);
        return false;
    }

    // ProtocolHost
    std::shared_ptr<sio::PacketMemory> const& packetMemory() override {
        if (memory_.use_count() != 1) memory_ = std::make_shared<sio::PacketMemory>();
        memory_->reset();
        return memory_;
    }
    bool isAwaited(std::string_view event) override { return !event.starts_with('u'); }
    void sendText(std::string_view text) override { transcript_.push_back("send " + std::string(text)); }
    void onPacket(sio::ReceivedPacket&& packet) override {
        SocketData const data(packet.items, packet.attachments);
        std::string line = std::to_string(static_cast<int>(packet.kind)) + ' ' + std::to_string(packet.id.value_or(0)) +
                           ' ' + std::string(packet.name) + ' ' + packet.unread + json::serialize(packet.items);
        for (auto const& item : packet.items) describeBinary(item, data, line);
        transcript_.push_back(std::move(line));
        if (packet.kind == sio::ReceivedPacket::Kind::ack) acknowledgements_.answer(packet.id, data);
        if (packet.kind == sio::ReceivedPacket::Kind::event && packet.unread.empty()) requireRoundTrip(packet);
    }

    Transcript transcript_;
    std::uint8_t const pace_;
    unsigned messages_ = 0;
    sio::ProtocolCore::Time now_{};
    sio::FrameReader reader_;
    sio::ProtocolCore core_{*this};
    std::shared_ptr<sio::PacketMemory> memory_;
    Acknowledgements acknowledgements_{transcript_};
};

/// Plays the bytes in pieces whose sizes go up and down; of size 0 in one piece.
Transcript play(Choices const& choices, std::string_view bytes, std::uint8_t cut) {
    Session session(choices);
    for (std::size_t at = 0, turn = 0; at < bytes.size(); ++turn) {
        auto const size = cut == 0 ? bytes.size() : 1 + turn * turn % cut;
        auto const piece = bytes.substr(at, size);
        if (!session.read({piece.begin(), piece.end()})) break;
        at += piece.size();
    }
    return session.finish();
}

}  // namespace

void run(Input input) {
    bool const isRaw = input.takeByte() == 'r';
    Choices choices{};
    choices.compression = input.takeByte();
    choices.cut = static_cast<std::uint8_t>(input.takeByte());
    choices.pace = static_cast<std::uint8_t>(input.takeByte());
    std::string bytes;
    if (isRaw) {
        bytes = input.takeRest();
    } else {
        while (!input.isEmpty()) bytes += framesOfLine(input.takeLine());
    }
    require(play(choices, bytes, 0) == play(choices, bytes, std::max<std::uint8_t>(choices.cut, 1)),
            "the same bytes say the same, however they are cut");
}

}  // namespace kv::fuzz
