// A client in a program whose coroutines are Asio's: each operation with a completion token of Asio's. Here the client
// lives on a strand of the program's own executor.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include <KvPim/KvPimAsio.h>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/use_future.hpp>

namespace asio = boost::asio;
using namespace asio::experimental::awaitable_operators;
using namespace std::chrono_literals;

namespace {

asio::awaitable<void> greet(std::shared_ptr<kv::KvPimKit> client) {
    auto const queue = client->mainQueue();
    auto const now = std::time(nullptr) * 1000;
    auto const login = [=] { return client->loginByToken("0123456789abcdef0123456789abcdef", now, "alice"); };
    co_await kv::submit(queue, login, asio::use_awaitable);  // throws what fails

    // Cancelled by Asio when the timer is first.
    asio::steady_timer timer(co_await asio::this_coro::executor, 10s);
    auto const told = [=] { return client->addOrUpdateLocalUserAttributes({{"kind", "person"}}); };
    auto const first = co_await (kv::submit(queue, told, asio::use_awaitable) || timer.async_wait(asio::use_awaitable));
    if (first.index() == 1) throw std::runtime_error("the service is slow");

    // Begins when it is awaited.
    auto const send = kv::submit(
        queue, [=] { return client->sendMessageToPeer("Hello, tokens", "alice"); }, asio::deferred);
    co_await send(asio::use_awaitable);
}

}  // namespace

int main(int argc, char** argv) try {
    asio::thread_pool pool(2);
    auto const strand = asio::make_strand(pool);
    kv::KvPimOptions options;
    options.envConfig.apiServer = argc > 1 ? argv[1] : "http://127.0.0.1:8600";
    options.mainQueue = kv::KvMainQueue::on([strand](auto work) { asio::post(strand, std::move(work)); });
    auto const queue = options.mainQueue;

    auto client = kv::KvPimKit::initWithAppId("demo", {}, options);
    if (!client) return 1;
    asio::co_spawn(pool, greet(client), asio::use_future).get();

    // For threads: the outcome as a future, which throws what fails.
    auto const found = kv::submit(
                           queue, [client] { return client->getUserAttributes("alice"); }, asio::use_future)
                           .get();
    std::printf("alice says: Hello, %s\n", found.at(0).value.value_or("").c_str());

    asio::post(strand, [client = std::exchange(client, nullptr)] {});  // it goes where it lives
    pool.join();
    queue->stop();
    return 0;
} catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
