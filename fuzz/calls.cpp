// The functions of the C interface in any order, from two threads at once. Each byte of the input is a call: which
// function, and with which of the few clients, texts and times.
#include "Binding/kvpim.h"
#include "fuzz/support/Input.h"

#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

#include <unistd.h>

namespace kv::fuzz {
namespace {

constexpr std::size_t kClients = 3;
using Clients = std::array<std::atomic<std::uint64_t>, kClients>;

// Nobody listens at the address; the directories cannot be made.
constexpr char const* kOptions[] = {
    R"({"appId":"a","apiServer":"http://127.0.0.1:9","cachesDirectory":"/dev/null/c","keyStoreDirectory":"/dev/null/k"})",
    R"({"appId":"a","apiServer":"http://127.0.0.1:9","cachesDirectory":"/dev/null/c","keyStoreDirectory":"/dev/null/k","polled":true,"engine":"mainQueue"})",
    R"({"appId":"a","apiServer":"http://127.0.0.1:9","cachesDirectory":"/dev/null/c","keyStoreDirectory":"/dev/null/k","engine":"thread","attachData":true,"network":{"maxUnhandledBytes":65536}})",
    R"({"appId":1})",
    nullptr,
};
constexpr char const* kRequests[] = {
    R"({"op":"state","id":1})",
    R"({"op":"getDebugInfo"})",
    R"({"op":"metrics"})",
    R"({"op":"quit"})",
    R"({"op":"loginByToken","token":"0123456789abcdef0123456789abcdef","timeStamp":1,"userId":"alice"})",
    R"({"op":"createChannelWithId","channelId":"c"})",
    R"({"op":"joinWithCompletion","channelId":"c"})",
    R"({"op":"sleep","seconds":0.001})",
    R"({"op":"logoutWithCompletion"})",
    R"({"op":"sendMessageToPeer","peerId":"b"})",
    "{",
    nullptr,
};

template <std::size_t count>
char const* oneOf(char const* const (&texts)[count], Input& input) {
    return texts[static_cast<unsigned char>(input.takeByte()) % count];
}

void onMessage(void* context, kvpim_message const* message) {
    require(std::strlen(kvpim_message_text(message)) == kvpim_message_length(message), "a text is as long as it says");
    auto const bits = reinterpret_cast<std::uintptr_t>(context);
    if (bits % 8 == 1) kvpim_destroy({bits / 8});
}

void call(Input& input, Clients& clients) {
    auto const byte = static_cast<unsigned char>(input.takeByte());
    auto& slot = clients[byte / 16 % kClients];
    kvpim_client const client{slot.load()};
    kvpim_message* message = nullptr;
    kvpim_error error;
    switch (byte % 16) {
        case 0:
        case 1: {
            kvpim_client made;
            bool const isMade = kvpim_create(oneOf(kOptions, input), &made, &error);
            require(isMade == (made.number != 0) && isMade == (error.kind == KVPIM_ERROR_NONE),
                    "a client is made or not");
            kvpim_destroy({slot.exchange(made.number)});
            break;
        }
        case 2:
            kvpim_destroy(client);
            break;
        case 3:
        case 4:
        case 5:
        case 6: {
            bool const isTaken = kvpim_request(client, oneOf(kRequests, input), &error);
            require(isTaken == (error.text[0] == '\0'), "what is refused has a reason");
            break;
        }
        case 7:
            kvpim_request_with_data(client, oneOf(kRequests, input), "data", 4, nullptr);
            break;
        case 8:
        case 9: {
            auto const outcome = kvpim_receive(client, static_cast<unsigned char>(input.takeByte()) % 3, &message);
            require((outcome == KVPIM_RECEIVED) == (message != nullptr), "a message is there when it is said");
            if (message != nullptr) onMessage(nullptr, message);
            kvpim_message_free(message);
            break;
        }
        case 10:
            require(kvpim_fd(client) >= -1, "a descriptor or none");
            break;
        case 11:
        case 12:
            kvpim_poll(client, static_cast<unsigned char>(input.takeByte()) % 3);
            break;
        case 13:
            kvpim_set_callback(client, onMessage, reinterpret_cast<void*>(client.number * 8 + (input.takeByte() & 1)),
                               nullptr);
            break;
        case 14:
            kvpim_set_callback(client, nullptr, nullptr, &error);
            break;
        case 15:
            require(kvpim_pending(client) < 10'000, "no more is pending than was begun");
            break;
    }
}

void callAll(std::string_view bytes, Clients& clients) {
    Input input(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
    while (!input.isEmpty()) call(input, clients);
}

}  // namespace

void run(Input input) {
    constexpr std::size_t kMostCalls = 300;
    [[maybe_unused]] static bool const isSilent =
        (kvpim_set_console_callback([](void*, int, char const*) {}, nullptr), true);
    auto const all = input.takeRest().substr(0, kMostCalls);
    Clients clients{};
    std::thread other([&] { callAll(all.substr(all.size() / 2), clients); });
    callAll(all.substr(0, all.size() / 2), clients);
    other.join();
    for (auto const& client : clients) kvpim_destroy({client});
}

}  // namespace kv::fuzz
