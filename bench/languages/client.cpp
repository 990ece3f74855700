// The C interface, as a program in another language uses it: requests from one thread, which receives as well.
//     kvpim-bench-c PORT ack_pipelined|recv_text|cycles OPS WARMUP
#include "bench/Measure.h"

#include <cstring>
#include <filesystem>
#include <iterator>

#include <KvPim/kvpim.h>
#include <unistd.h>

namespace {

constexpr int kDeep = 64;
constexpr long kPieces = 10;

[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "kvpim-bench-c: %s\n", what);
    std::_Exit(1);
}

struct Files {
    std::string const path =
        (std::filesystem::temp_directory_path() / ("kvpim-bench-" + std::to_string(::getpid()))).string();
    ~Files() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

class Client {
public:
    explicit Client(std::string const& options) {
        kvpim_error error;
        if (!kvpim_create(options.c_str(), &client_, &error)) fail(error.text);
    }
    ~Client() { kvpim_destroy(client_); }
    Client(Client const&) = delete;
    Client& operator=(Client const&) = delete;

    void request(char const* text) {
        kvpim_error error;
        if (!kvpim_request(client_, text, &error)) fail(error.text);
    }
    void login() {
        request(
            R"({"op":"loginByToken","id":1,"token":"0123456789abcdef0123456789abcdef","timeStamp":1,"userId":"alice"})");
        await("\"code\":0");
    }
    void pipelined(long count) {
        std::string const text =
            R"({"op":"sendMessageToPeer","id":2,"peerId":"bob","text":")" + std::string(64, 'x') + "\"}";
        for (long sent = 0, answered = 0; answered < count;) {
            for (; sent < count && sent - answered < kDeep; ++sent) request(text.c_str());
            await("\"code\":0");
            ++answered;
        }
    }
    void receive(long count) {
        request(
            (R"({"op":"sendMessageToPeer","peerId":"flood-text","text":")" + std::to_string(count) + "\"}").c_str());
        for (long i = 0; i < count; ++i) await("messageReceived");
    }

private:
    void await(char const* what) {
        for (bool isThere = false; !isThere;) {
            kvpim_message* message = nullptr;
            if (kvpim_receive(client_, 30'000, &message) != KVPIM_RECEIVED) fail("nothing comes");
            isThere = std::strstr(kvpim_message_text(message), what) != nullptr;
            kvpim_message_free(message);
        }
    }

    kvpim_client client_{};
};

void runCycles(std::string const& options, long count) {
    for (long piece = 0; piece < kPieces; ++piece) {
        for (long i = 0; i < count / kPieces; ++i) {
            Client client(options);
            client.login();
        }
        auto const descriptors = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
        std::printf(
            "{\"workload\":\"cycles\",\"client\":\"c\",\"ops\":%ld,\"rss_kb\":%ld,\"descriptors\":%ld,\"threads\":%ld}"
            "\n",
            (piece + 1) * (count / kPieces), bench::statusOf("VmRSS:"), static_cast<long>(descriptors),
            bench::statusOf("Threads:"));
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 5) fail("usage: kvpim-bench-c PORT WORKLOAD OPS WARMUP");
    std::string const workload = arguments[2];
    long const operations = std::atol(arguments[3]), warmUp = std::atol(arguments[4]);
    Files const files;
    kvpim_set_console_callback([](void*, int, char const*) {}, nullptr);
    auto const options = std::string(R"({"appId":"bench","apiServer":"http://127.0.0.1:)") + arguments[1] +
                         R"(","collectServer":"http://127.0.0.1:9/","cachesDirectory":")" + files.path +
                         R"(/caches","keyStoreDirectory":")" + files.path + R"(/keys"})";
    if (workload == "cycles") return runCycles(options, operations), 0;
    Client client(options);
    client.login();
    auto const run = [&](long count) { workload == "recv_text" ? client.receive(count) : client.pipelined(count); };
    run(warmUp);
    bench::Measurement measurement;
    run(operations);
    measurement.stop();
    measurement.print(workload, "c", operations);
}
