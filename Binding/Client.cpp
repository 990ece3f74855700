#include "Binding/Client.h"

#include "Binding/ClientThread.h"
#include "Classes/Await/KvResult.h"
#include "Classes/Model/KvFailure.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <future>
#include <limits>
#include <utility>

#include <poll.h>

namespace kv::binding {
namespace json = boost::json;
namespace {

constexpr std::size_t kMostDepth = 1000;

// A number beyond a double is read as infinity, which cannot be written back.
bool isFinite(json::value const& value) {
    if (auto const* number = value.if_double()) return std::isfinite(*number);
    if (auto const* array = value.if_array()) return std::ranges::all_of(*array, isFinite);
    auto const* object = value.if_object();
    return object == nullptr || std::ranges::all_of(*object, [](auto const& entry) { return isFinite(entry.value()); });
}

}  // namespace

json::object parseObject(std::string_view text) {
    boost::system::error_code error;
    json::parse_options options;
    options.max_depth = kMostDepth;
    auto value = json::parse(text, error, {}, options);
    if (error) throw BadRequest("not JSON: " + error.message());
    if (!isFinite(value)) throw BadRequest("a number is out of range");
    if (!value.is_object()) throw BadRequest("not a JSON object");
    return std::move(value.get_object());
}

Client::Client(ClientOptions const& options, std::shared_ptr<KvMainQueue> queue) : isPolled_(options.isPolled) {
    session_.queue = std::move(queue);
}

std::shared_ptr<Client> Client::make(ClientOptions options) {
    auto queue = options.client.mainQueue;
    if (!queue) queue = options.isPolled ? KvMainQueue::create() : clientThreadQueue();
    if (!queue) throw Problem(KVPIM_ERROR_SYSTEM, "The system has no descriptors or no thread left.");
    std::shared_ptr<Client> const client(new Client(options, queue));
    std::optional<std::string> refusal;
    if (client->isPolled_ || queue->isCurrent()) {
        refusal = client->start(std::move(options));
    } else {
        std::promise<std::optional<std::string>> started;
        queue->post([&] {
            try {
                started.set_value(client->start(std::move(options)));
            } catch (...) {
                started.set_exception(std::current_exception());
            }
        });
        refusal = started.get_future().get();
    }
    if (refusal) throw Problem(KVPIM_ERROR_CREATE, *refusal);
    return client;
}

std::optional<std::string> Client::start(ClientOptions options) {
    auto const weak = weak_from_this();
    Inbox::Events const on{
        .full = [this] { session_.client->pauseReading(); },
        .room =
            [weak] {
                auto const self = weak.lock();
                if (!self) return;
                self->runOnQueue([](Client& client) {
                    if (client.session_.client) client.session_.client->resumeReading();
                });
            },
        .first = [this] { runOnQueue([](Client& client) { client.inbox().wake(); }); },
    };
    session_.inbox = std::make_shared<Inbox>(options.client.network.maxUnhandledBytes, options.attachesData, on);
    session_.delegate = makeClientDelegate(session_.inbox, options.delegate);
    options.client.mainQueue = session_.queue;
    auto client = KvPimKit::create(options.appId, std::move(options.client), session_.delegate);
    if (!client) return client.error().failure()->cause;
    session_.client = *std::move(client);
    return std::nullopt;
}

void Client::request(std::string_view text, KvData data) {
    auto fields = parseObject(text);
    Arguments const arguments(fields, data);
    auto const& operation = operationOf(arguments.text("op"));
    check(operation, arguments);
    auto const* const id = fields.if_contains("id");
    Answer answer(session_.inbox, session_.open, id ? *id : nullptr, operation.name);
    auto const request =
        std::make_shared<Request>(Request{std::move(fields), std::move(data), operation, std::move(answer)});
    runOnQueue([request](Client& self) { self.carryOut(*request); });
}

void Client::carryOut(Request const& request) {
    if (isOver_) return;
    try {
        request.operation.run(session_, Arguments(request.fields, request.data), request.answer);
    } catch (std::exception const& problem) {
        request.answer.refusal(problem.what());
    }
    request.answer.callReturned();
}

void Client::setCallback(std::function<void(kvpim_message const&)> callback) {
    runOnQueue([callback = std::move(callback)](Client& self) { self.inbox().setCallback(callback); });
}

// Work that nobody comes to any more must not keep the client, which keeps the queue that it is on.
void Client::runOnQueue(std::function<void(Client&)> work) {
    session_.queue->post([weak = weak_from_this(), work = std::move(work)] {
        if (auto const self = weak.lock()) work(*self);
    });
}

int Client::fd() { return isPolled_ ? session_.queue->fd() : inbox().fd(); }

void Client::poll(std::int64_t milliseconds) {
    auto& queue = *session_.queue;
    auto const self = std::this_thread::get_id();
    if (poller_ == self) return static_cast<void>(queue.poll());  // inside a callback
    std::lock_guard const lock(polling_);
    if (isOver_) return;
    poller_ = self;
    if (queue.poll() == 0 && milliseconds != 0) {
        pollfd ready{.fd = queue.fd(), .events = POLLIN, .revents = 0};
        auto const most = std::int64_t{std::numeric_limits<int>::max()};
        ::poll(&ready, 1, milliseconds < 0 ? -1 : static_cast<int>(std::min(milliseconds, most)));
        queue.poll();
    }
    poller_ = std::thread::id();
    if (isOver_) letGo();
}

// Not inside a call of the client's own: what such a call works on stays until it has returned.
void Client::end() {
    isOver_ = true;
    inbox().end();
    if (!isPolled_) return session_.queue->post([self = shared_from_this()] { self->letGo(); });
    if (poller_ == std::this_thread::get_id()) return;  // `poll` does it as it returns
    session_.queue->post([] {});                        // wakes who polls
    std::lock_guard const lock(polling_);
    session_.queue->poll();  // what belongs to the queue is this thread's from now on
    letGo();
}

void Client::letGo() {
    session_.sleeps.clear();
    session_.channels.clear();
    session_.client.reset();
    session_.delegate.reset();
}

}  // namespace kv::binding
