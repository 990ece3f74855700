#include "SocketIO/core/ByteStore.h"
#include "support/Test.h"

namespace kv::sio {
namespace {

TEST(ByteStore, UsesBuffersAgainWhoeverFreesThem) {
    auto bytes = takeBytes(30'000);
    auto const* const buffer = bytes.data();
    bytes.assign(30'000, 7);
    auto data = makeReceived(std::move(bytes));
    auto part = std::make_shared<KvData>(data);
    std::thread([&] {
        data.reset();
        part.reset();
    }).join();
    auto again = takeBytes(32'768);
    EXPECT_EQ(again.data(), buffer);
    EXPECT_TRUE(again.empty());
}

}  // namespace
}  // namespace kv::sio
