#include "SocketIO/core/Deflate.h"
#include "SocketIO/transport/Framer.h"
#include "TestKit/Internal/Frames.h"
#include "support/Test.h"

namespace kv::sio {
namespace {

using namespace kv::test;
using Put = Outbox::Put;

constexpr std::size_t kNoBound = 64u << 20;
Outbox::Time const kNow{1h};
Outbox::Time const kLater = kNow + 1s;

std::vector<KvData> attachments(std::vector<std::string> const& texts) {
    std::vector<KvData> all;
    all.reserve(texts.size());
    for (auto const& text : texts) all.push_back(makeData(std::string_view(text)));
    return all;
}

class FramerTest : public ::testing::Test {
protected:
    // All that goes out, and how many pieces it took.
    std::vector<ClientFrame> gather(Framer& framer) {
        std::string bytes;
        SendBuffer buffer;
        for (pieces = 0;; ++pieces) {
            buffer.clear();
            framer.gather(buffer, kNow);
            if (buffer.bytes().empty()) break;
            bytes += textOf(buffer.bytes());
        }
        auto frames = takeClientFrames(bytes);
        EXPECT_EQ(bytes, "") << "an unfinished frame";
        return frames;
    }
    static ClientFrame text(std::string payload) { return {kText, false, std::move(payload), {}}; }
    static ClientFrame binary(std::string payload) { return {kBinary, false, std::move(payload), {}}; }

    int pieces = 0;
};

TEST_F(FramerTest, SendsAllThatWaitsInOnePieceAndInOrder) {
    Outbox outbox(kNoBound);
    Framer framer(outbox);
    EXPECT_EQ(outbox.put("first", {}, kLater), Put::queuedFirst);
    EXPECT_EQ(outbox.put("second", attachments({"a", "", "ccc"}), kLater), Put::queued);
    EXPECT_EQ(outbox.put("third", {}, kLater), Put::queued);
    framer.putAhead(WsOpcode::pong, "ping");
    EXPECT_EQ(gather(framer), (std::vector<ClientFrame>{{kPong, false, "ping", {}},
                                                        text("first"),
                                                        text("second"),
                                                        binary("a"),
                                                        binary(""),
                                                        binary("ccc"),
                                                        text("third")}));
    EXPECT_EQ(pieces, 1);
    EXPECT_EQ(outbox.put("again", {}, kLater), Put::queuedFirst) << "the engine sleeps again";
    EXPECT_EQ(gather(framer), std::vector<ClientFrame>{text("again")});
}

TEST_F(FramerTest, PutsControlFramesBetweenFramesOnly) {
    Outbox outbox(kNoBound);
    Framer framer(outbox);
    std::string large;
    for (int i = 0; large.size() < 300000; ++i) large += std::to_string(i);
    ASSERT_EQ(outbox.put("header", attachments({large}), kLater), Put::queuedFirst);
    SendBuffer buffer;
    framer.gather(buffer, kNow);
    EXPECT_TRUE(framer.isInsideFrame());
    framer.putAhead(WsOpcode::pong, "late");
    auto bytes = textOf(buffer.bytes());
    buffer.clear();
    framer.gather(buffer, kNow);
    bytes += textOf(buffer.bytes());
    EXPECT_EQ(takeClientFrames(bytes),
              (std::vector<ClientFrame>{text("header"), binary(large), {kPong, false, "late", {}}}));
    EXPECT_FALSE(framer.isInsideFrame());
}

TEST_F(FramerTest, DropsWhatNobodyWaitsForAnyMore) {
    Outbox outbox(100);
    Framer framer(outbox);
    std::string const half(50, 'x');
    EXPECT_EQ(outbox.put("expired", attachments({"of it"}), kNow), Put::queuedFirst);
    EXPECT_EQ(outbox.put("wanted", attachments({"bytes"}), kLater), Put::queued);
    EXPECT_EQ(outbox.put("expired too", {}, kNow - 1s), Put::queued);
    EXPECT_EQ(outbox.put(half, attachments({half}), kLater), Put::full);
    EXPECT_EQ(gather(framer), (std::vector<ClientFrame>{text("wanted"), binary("bytes")}));
    EXPECT_EQ(outbox.put(half, attachments({half}), kLater), Put::queuedFirst) << "nothing waits any more";
    EXPECT_EQ(outbox.put("x", {}, kLater), Put::full);
}

TEST_F(FramerTest, ClosesBehindWhatWaits) {
    Outbox outbox(kNoBound);
    Framer framer(outbox);
    ASSERT_EQ(outbox.put("last words", {}, kLater), Put::queuedFirst);
    framer.closeWhenEmpty("41");
    EXPECT_EQ(gather(framer),
              (std::vector<ClientFrame>{text("last words"), text("41"), {kClose, false, "\x03\xE8", {}}}));
}

TEST_F(FramerTest, DeflatesLargeMessagesOnly) {
    Outbox outbox(kNoBound);
    Framer framer(outbox);
    framer.setDeflates(9);
    std::string const below(1023, 'x'), above(1024, 'x');
    ASSERT_EQ(outbox.put(below, attachments({below, above}), kLater), Put::queuedFirst);
    ASSERT_EQ(outbox.put(above, {}, kLater), Put::queued);
    auto const frames = gather(framer);
    ASSERT_EQ(frames.size(), 4u);
    EXPECT_EQ(frames[0], text(below));
    EXPECT_EQ(frames[1], binary(below));
    for (auto const i : {2u, 3u}) {
        EXPECT_TRUE(frames[i].isCompressed);
        KvBytes inflated;
        EXPECT_EQ(Inflater(Inflater::Context::dropped).inflate(bytesOf(frames[i].payload), inflated, 2000), "");
        EXPECT_EQ(textOf(inflated), above);
    }
}

TEST_F(FramerTest, DoesNotAnswerEveryPingOfAFlood) {
    Outbox outbox(kNoBound);
    Framer framer(outbox);
    std::string const payload(125, 'p');
    for (int i = 0; i < 1000000; ++i) framer.putAhead(WsOpcode::pong, payload);
    SendBuffer buffer;
    framer.gather(buffer, kNow);
    EXPECT_LT(buffer.bytes().size(), 100000u);
    EXPECT_GT(buffer.bytes().size(), 125u);
}

}  // namespace
}  // namespace kv::sio
