#include "Platform/KvUtf8.h"
#include "SocketIO/core/Deflate.h"
#include "SocketIO/core/WebSocketCodec.h"
#include "TestKit/Internal/Frames.h"
#include "support/Test.h"

#include <set>

#include <zlib.h>

namespace kv::sio {
namespace {

using namespace kv::test;
using Messages = std::vector<std::pair<WsOpcode, std::string>>;

// What a reader finds in the pieces, or its error.
struct Outcome {
    Messages messages;
    std::string error;
    bool operator==(Outcome const&) const = default;
};

void readInto(FrameReader& reader, Outcome& outcome, std::string_view piece) {
    // A copy of exactly this size lets the address sanitizer see a read beyond it.
    std::vector<std::uint8_t> const copy(piece.begin(), piece.end());
    std::span<std::uint8_t const> input(copy);
    for (;;) {
        auto const step = reader.next(input);
        if (step == FrameReader::Step::needMore) {
            EXPECT_TRUE(input.empty());
            return;
        }
        if (step == FrameReader::Step::failed) {
            outcome.error = reader.error();
            return;
        }
        outcome.messages.emplace_back(reader.opcode(), std::string(reader.text()));
    }
}

enum class Deflate { refused, contextDropped, contextKept };

FrameReader makeReader(Deflate deflate) {
    FrameReader reader;
    if (deflate != Deflate::refused) {
        bool const isKept = deflate == Deflate::contextKept;
        reader.setInflater(Inflater(isKept ? Inflater::Context::kept : Inflater::Context::dropped));
    }
    return reader;
}

Outcome read(std::vector<std::string_view> const& pieces, Deflate deflate = Deflate::refused) {
    auto reader = makeReader(deflate);
    Outcome outcome;
    for (auto const piece : pieces) readInto(reader, outcome, piece);
    return outcome;
}

std::string deflated(std::string_view text) {
    KvBytes out;
    deflateMessage(bytesOf(text), 15, out);
    return textOf(out);
}

TEST(FrameReader, FindsTheSameMessagesWhereverTheBytesAreCut) {
    std::string const medium(300, 'm');
    std::string const stream = textFrame("2") + binaryFrame(medium) + serverFrame(kText, "frag") +
                               serverFrame(kFin | kPing, "are you there") + serverFrame(kContinuation, "") +
                               serverFrame(kFin | kContinuation, "mented \xC3\xA4") + textFrame("") + binaryFrame("") +
                               serverFrame(kFin | kCompressed | kText, deflated(medium)) +
                               serverFrame(kFin | kClose, std::string("\x03\xE8", 2) + "bye");
    Outcome const whole{{{WsOpcode::text, "2"},
                         {WsOpcode::binary, medium},
                         {WsOpcode::ping, "are you there"},
                         {WsOpcode::text, "fragmented \xC3\xA4"},
                         {WsOpcode::text, ""},
                         {WsOpcode::binary, ""},
                         {WsOpcode::text, medium},
                         {WsOpcode::close, std::string("\x03\xE8", 2) + "bye"}},
                        {}};
    ASSERT_EQ(read({stream}, Deflate::contextDropped), whole);
    std::string_view const view = stream;
    for (std::size_t cut = 1; cut < view.size(); ++cut) {
        ASSERT_EQ(read({view.substr(0, cut), view.substr(cut)}, Deflate::contextDropped), whole) << "cut at " << cut;
    }
}

TEST(FrameReader, ReadsEveryFormOfLength) {
    for (std::size_t const size : {0, 1, 125, 126, 127, 65535, 65536, 200000}) {
        std::string const payload(size, 'x'), frame = binaryFrame(payload);
        ASSERT_EQ(read({frame}), (Outcome{{{WsOpcode::binary, payload}}, {}})) << size;
    }
}

TEST(FrameReader, HandsOverGatheredBytesOnce) {
    FrameReader reader;
    std::string const frame = binaryFrame("attachment");
    auto first = bytesOf(std::string_view(frame).substr(0, 5)), second = bytesOf(std::string_view(frame).substr(5));
    ASSERT_EQ(reader.next(first), FrameReader::Step::needMore);
    ASSERT_EQ(reader.next(second), FrameReader::Step::message);
    EXPECT_EQ(textOf(reader.takePayload()), "attachment");
    auto next = bytesOf(frame);
    ASSERT_EQ(reader.next(next), FrameReader::Step::message);
    EXPECT_EQ(textOf(reader.takePayload()), "attachment");
}

TEST(FrameReader, RefusesWhatTheProtocolForbids) {
    std::string masked = textFrame("hello");
    masked[1] = static_cast<char>(masked[1] | 0x80);
    auto const length = [](int first, std::string_view bytes) {
        return std::string(1, static_cast<char>(first)).append(bytes);
    };
    struct Case {
        char const* what;
        std::string bytes;
        char const* error;
        std::size_t messages = 0;
    };
    std::vector<Case> const cases{
        {"masked by the server", masked, "masked"},
        {"reserved bit 2", serverFrame(kFin | 0x20 | kText, "a"), "reserved bits"},
        {"reserved bit 3", serverFrame(kFin | 0x10 | kText, "a"), "reserved bits"},
        {"compressed, which nobody agreed to", serverFrame(kFin | kCompressed | kText, deflated("a")), "reserved bits"},
        {"unknown opcode 3", serverFrame(kFin | 3, "a"), "unknown opcode 3"},
        {"unknown opcode 11", serverFrame(kFin | 11, "a"), "unknown opcode 11"},
        {"fragmented ping", serverFrame(kPing, "a"), "fragmented control frame"},
        {"long ping", serverFrame(kFin | kPing, std::string(126, 'p')), "control frame too long"},
        {"continuation of nothing", textFrame("a") + serverFrame(kFin | kContinuation, "b"),
         "continuation of no message", 1},
        {"message inside a message", serverFrame(kText, "a") + textFrame("b"), "inside a fragmented one"},
        {"16-bit length of 125", length(kFin | kText, {"\x7E\x00\x7D", 3}), "shortest form"},
        {"64-bit length of 65535", length(kFin | kText, {"\x7F\0\0\0\0\0\0\xFF\xFF", 9}), "shortest form"},
        {"64-bit length with the top bit", length(kFin | kText, {"\x7F\x80\0\0\0\0\0\0\0", 9}), "over the limit"},
        {"16 MiB and a byte", length(kFin | kBinary, {"\x7F\0\0\0\0\x01\0\0\x01", 9}), "over the limit"},
        {"bad UTF-8", textFrame("ok \xC0\x80"), "not UTF-8"},
        {"bad UTF-8 in two fragments", serverFrame(kText, "\xE2\x82") + serverFrame(kFin | kContinuation, "x"),
         "not UTF-8"},
    };
    for (auto const& c : cases) {
        auto const outcome = read({c.bytes});
        EXPECT_NE(outcome.error.find(c.error), std::string::npos) << c.what << ": " << outcome.error;
        EXPECT_EQ(outcome.messages.size(), c.messages) << c.what;
        EXPECT_EQ(read({c.bytes, textFrame("later")}), outcome) << c.what << ", and stays refused";
    }
}

TEST(FrameReader, BoundsAMessageOfManyFragments) {
    FrameReader reader;
    Outcome outcome;
    std::string const fragment = serverFrame(kContinuation, std::string(1u << 20, 'f'));
    readInto(reader, outcome, serverFrame(kBinary, ""));
    for (int i = 0; i < 16; ++i) readInto(reader, outcome, fragment);
    EXPECT_EQ(outcome.error, "");
    readInto(reader, outcome, serverFrame(kContinuation, "x"));
    EXPECT_NE(outcome.error.find("over the limit"), std::string::npos);
    EXPECT_EQ(reader.closeCode(), WsCloseCode::tooBig);

    FrameReader small(1000);
    small.setInflater(Inflater(Inflater::Context::dropped));
    Outcome sizes;
    readInto(small, sizes, binaryFrame(std::string(1000, 'f')));
    EXPECT_EQ(sizes.messages.size(), 1u);
    readInto(small, sizes, serverFrame(kFin | kCompressed | kBinary, deflated(std::string(1001, 'f'))));
    EXPECT_NE(sizes.error.find("over the limit"), std::string::npos);
}

// As a server that keeps its context compresses: later messages refer to earlier ones.
class ContextDeflater {
public:
    ContextDeflater() { deflateInit2(&stream_, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY); }
    ~ContextDeflater() { deflateEnd(&stream_); }
    std::string operator()(std::string_view text) {
        std::string out(text.size() + 100, '\0');
        stream_.next_in = const_cast<Bytef*>(reinterpret_cast<Bytef const*>(text.data()));
        stream_.avail_in = static_cast<uInt>(text.size());
        stream_.next_out = reinterpret_cast<Bytef*>(out.data());
        stream_.avail_out = static_cast<uInt>(out.size());
        deflate(&stream_, Z_SYNC_FLUSH);
        out.resize(out.size() - stream_.avail_out - 4);
        return out;
    }

private:
    z_stream stream_{};
};

std::string incompressible(std::size_t size) {
    std::string text;
    std::uint32_t state = 1;
    for (; text.size() < size; state = state * 1664525 + 1013904223)
        text += static_cast<char>(' ' + (state >> 24) % 90);
    return text;
}

TEST(FrameReader, InflatesWithAndWithoutKeptContext) {
    ContextDeflater keeping;
    std::string const text = incompressible(2000);
    std::string const first = keeping(text), second = keeping(text);
    ASSERT_LT(second.size(), first.size() / 10);
    auto const frames = serverFrame(kFin | kCompressed | kText, first) + textFrame("plain between") +
                        serverFrame(kCompressed | kText, second.substr(0, 3)) +
                        serverFrame(kFin | kContinuation, second.substr(3));
    Outcome const wanted{{{WsOpcode::text, text}, {WsOpcode::text, "plain between"}, {WsOpcode::text, text}}, {}};
    EXPECT_EQ(read({frames}, Deflate::contextKept), wanted);
    EXPECT_NE(read({frames}, Deflate::contextDropped).error, "");

    auto const alone = serverFrame(kFin | kCompressed | kText, deflated(text));
    EXPECT_EQ(read({alone + alone}, Deflate::contextDropped).messages.size(), 2u);
    EXPECT_EQ(read({alone}, Deflate::contextKept).messages.size(), 1u);
    auto const empty = serverFrame(kFin | kCompressed | kText, deflated(""));
    EXPECT_EQ(read({empty}, Deflate::contextDropped), (Outcome{{{WsOpcode::text, ""}}, {}}));
}

TEST(FrameReader, RefusesBadAndBoundlessCompressedData) {
    // A thousand times as much comes out as goes in: lawful while it is little.
    for (auto const& [megabytes, error] : {std::pair{4, ""}, {5, "over the limit"}, {17, "over the limit"}}) {
        std::string const zeros(static_cast<std::size_t>(megabytes) << 20, '\0');
        auto const bomb = serverFrame(kFin | kCompressed | kBinary, ContextDeflater()(zeros));
        ASSERT_LT(bomb.size(), 20000u);
        EXPECT_NE(read({bomb}, Deflate::contextDropped).error.find(error), std::string::npos) << megabytes;
    }
    auto const garbage = serverFrame(kFin | kCompressed | kBinary, "\xFF\xFF\xFF garbage");
    EXPECT_NE(read({garbage}, Deflate::contextDropped).error.find("bad compressed data"), std::string::npos);
    EXPECT_NE(
        read({serverFrame(kText, "a") + serverFrame(kFin | kCompressed | kContinuation, "b")}, Deflate::contextDropped)
            .error.find("reserved bits"),
        std::string::npos);
    // The shared inflater of the thread is none the worse for it.
    auto const good = serverFrame(kFin | kCompressed | kText, deflated("good"));
    EXPECT_EQ(read({good}, Deflate::contextDropped), (Outcome{{{WsOpcode::text, "good"}}, {}}));
}

TEST(FrameWriting, MasksSoThatTheServerReadsThePayload) {
    for (std::size_t const size : {0, 1, 31, 32, 33, 125, 126, 65535, 65536}) {
        auto const payload = incompressible(size);
        KvBytes out;
        appendFrame(out, WsOpcode::binary, payload);
        auto bytes = textOf(out);
        auto const frames = takeClientFrames(bytes);
        ASSERT_EQ(frames.size(), 1u) << size;
        EXPECT_EQ(frames[0], (ClientFrame{kBinary, false, payload, {}})) << size;
        EXPECT_EQ(bytes, "");
    }
}

TEST(FrameWriting, UsesANewMaskForEachFrame) {
    std::set<std::array<std::uint8_t, 4>> masks;
    for (int i = 0; i < 1000; ++i) masks.insert(randomMask());
    EXPECT_GT(masks.size(), 990u);
}

TEST(CloseFrame, IsReadOrRefused) {
    struct Case {
        std::string payload;
        int answer;
        char const* text;
    };
    std::vector<Case> const cases{
        {"", 1000, "The server closed the connection"},
        {std::string("\x03\xE8", 2) + "done", 1000, "1000 done"},
        {std::string("\x0F\xA0", 2), 4000, "4000"},
        {"\x03", 1002, "one byte"},
        {std::string("\x03\xED", 2), 1002, "close code 1005"},
        {std::string("\x03\xE7", 2), 1002, "close code 999"},
        {std::string("\x13\x88", 2), 1002, "close code 5000"},
        {std::string("\x03\xE8", 2) + "\xFF", 1007, "not UTF-8"},
    };
    for (auto const& c : cases) {
        auto const close = readClose(c.payload);
        EXPECT_EQ(static_cast<int>(close.answer), c.answer) << close.text;
        EXPECT_NE(close.text.find(c.text), std::string::npos) << close.text;
    }
}

TEST(Utf8, TellsWellFormedTextFromTheRest) {
    for (std::string_view const good :
         {"", "plain ascii of more than eight bytes", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
          "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "12345678\xE2\x82\xACklmnopqr"}) {
        EXPECT_TRUE(isValidUtf8(good)) << good;
        for (std::size_t i = 1; i < good.size(); ++i) {  // a sequence cut short is wrong, one cut between is right
            bool const isBetween = (static_cast<unsigned char>(good[i]) & 0xC0) != 0x80;
            EXPECT_EQ(isValidUtf8(good.substr(0, i)), isBetween) << good << " cut at " << i;
        }
    }
    for (std::string_view const bad :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFE", "\xFF", "\xE2\x28\xA1", "12345678\xFF"}) {
        EXPECT_FALSE(isValidUtf8(bad)) << bad;
        std::string repaired(bad);
        replaceInvalidUtf8(repaired);
        EXPECT_TRUE(isValidUtf8(repaired)) << bad;
        EXPECT_NE(repaired.find("\xEF\xBF\xBD"), std::string::npos) << bad;
    }
    std::string mixed = "x\xFFy\xE2\x82z";
    replaceInvalidUtf8(mixed);
    EXPECT_EQ(mixed, "x\xEF\xBF\xBDy\xEF\xBF\xBD\xEF\xBF\xBDz");
}

}  // namespace
}  // namespace kv::sio
