#include "bench/KitClient.h"
#include "bench/Measure.h"
#include "bench/Workloads.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace bench {
namespace {

constexpr std::size_t kLoginsAtATime = 200, kTalkAtATime = 1000;
constexpr std::chrono::seconds kIdle{5};

void print(char const* what, Measurement const& measured, std::size_t count) {
    std::printf("%-28s %8.2f s %8.2f s of CPU, %7.1f us each\n", what, measured.wall(), measured.cpu(),
                measured.cpu() * 1e6 / static_cast<double>(count));
}

// Each client sends itself a message, and answers it when it comes back.
void talk(Client& client, Client::Done done) {
    auto& kit = static_cast<KitClient&>(client);
    kit.onMessage = [&kit, done = std::move(done)](std::size_t) {
        kit.send(Content::text, [done](std::int64_t code) {
            if (code != 0) fail("an answer was answered with %lld", static_cast<long long>(code));
            done();
        });
    };
    kit.sendTo("me", "hello", [](std::int64_t code) {
        if (code != 0) fail("a message was answered with %lld", static_cast<long long>(code));
    });
}

}  // namespace

void runCrowd(Subject const& subject, long count) {
    auto const memoryBefore = statusOf("VmRSS:");
    Clients clients;
    for (long i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<KitClient>(subject.atAddress(i), "user-" + std::to_string(i)));
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
    withEach(clients, kTalkAtATime, talk);
    conversation.stop();
    for (auto const& client : clients) client->onMessage = nullptr;
    print("receive and answer", conversation, size);

    auto const switchesBefore = usage().ru_nvcsw;
    Measurement idle;
    kv::KvMainQueue::main()->runFor(kIdle);
    idle.stop();
    std::printf("%-28s %8.2f s %8.3f s of CPU, %ld wake-ups\n", "idle", idle.wall(), idle.cpu(),
                usage().ru_nvcsw - switchesBefore);

    Measurement logout;
    withEach(clients, kTalkAtATime, [](Client& client, Client::Done done) { client.logout(std::move(done)); });
    clients.clear();
    logout.stop();
    print("log out", logout, size);
}

}  // namespace bench
