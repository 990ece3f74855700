#include "bench/KitClient.h"
#include "bench/Measure.h"
#include "bench/Workloads.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace bench {
namespace {

constexpr std::size_t kLoginsAtATime = 200;
constexpr std::chrono::seconds kIdle{5};

void print(char const* what, Measurement const& measured, std::size_t count) {
    std::printf("%-28s %8.2f s %8.2f s of CPU, %7.1f us each\n", what, measured.wall(), measured.cpu(),
                measured.cpu() * 1e6 / static_cast<double>(count));
}

// Each client sends itself a message, and answers it when it comes back.
void talk(std::vector<std::unique_ptr<Client>> const& clients) {
    std::size_t answered = 0;
    runUntilDone([&](Client::Done const& done) {
        for (auto const& client : clients) {
            auto& kit = static_cast<KitClient&>(*client);
            kit.onMessage = [&, done](std::size_t) {
                kit.send(Content::text, [&, done](std::int64_t code) {
                    if (code != 0) fail("an answer was answered with %lld", static_cast<long long>(code));
                    if (++answered == clients.size()) done();
                });
            };
            kit.sendTo("me", "hello", [](std::int64_t code) {
                if (code != 0) fail("a message was answered with %lld", static_cast<long long>(code));
            });
        }
    });
    for (auto const& client : clients) client->onMessage = nullptr;
}

}  // namespace

void runCrowd(Subject const& subject, long count) {
    auto const memoryBefore = statusOf("VmRSS:");
    std::vector<std::unique_ptr<Client>> clients;
    for (long i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<KitClient>(subject, "user-" + std::to_string(i)));
    }
    Measurement login;
    loginAll(clients, kLoginsAtATime);
    login.stop();
    auto const size = clients.size();
    std::printf("%zu clients, %s\n", size, subject.name().c_str());
    print("log in", login, size);
    std::printf("%-28s %8ld\n", "threads of the process", statusOf("Threads:"));
    std::printf("%-28s %8.1f KiB\n", "memory of each",
                static_cast<double>(statusOf("VmRSS:") - memoryBefore) / static_cast<double>(count));

    Measurement conversation;
    talk(clients);
    conversation.stop();
    print("receive and answer", conversation, size);

    auto const switchesBefore = usage().ru_nvcsw;
    Measurement idle;
    kv::KvMainQueue::main()->runFor(kIdle);
    idle.stop();
    std::printf("%-28s %8.2f s %8.3f s of CPU, %ld wake-ups\n", "idle", idle.wall(), idle.cpu(),
                usage().ru_nvcsw - switchesBefore);
}

}  // namespace bench
