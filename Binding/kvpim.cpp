#include "Binding/kvpim.h"

#include "Binding/Client.h"
#include "Binding/ClientThread.h"
#include "Binding/Interface.h"
#include "Classes/KvPimKit.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include <openssl/crypto.h>
#include <pthread.h>

namespace {

using namespace kv::binding;
using namespace std::chrono_literals;

// Never destroyed: threads of the application may ask for a client to the very end of the process.
struct Clients {
    std::mutex mutex;
    // Guarded by the mutex.
    std::unordered_map<std::uint64_t, std::shared_ptr<Client>> all{};
    std::uint64_t last = 0;
};

Clients& clients() {
    static auto& clients = *new Clients;
    return clients;
}

std::atomic<bool> isForked{false};

void endAll() {
    if (isForked) return;
    std::unordered_map<std::uint64_t, std::shared_ptr<Client>> all;
    {
        std::lock_guard const lock(clients().mutex);
        all.swap(clients().all);
    }
    for (auto const& [number, client] : all)
        if (!client->isPolled()) client->end();  // who polls may be doing so
    stopClientThread();
}

/// Once there is a client: what the library does at the end of the process comes behind this then.
void watchProcess() {
    static bool const isWatched = [] {
        std::atexit(endAll);
        pthread_atfork(nullptr, nullptr, [] { isForked = true; });
        return true;
    }();
    static_cast<void>(isWatched);
}

/// Null where there is none.
std::shared_ptr<Client> find(kvpim_client client) {
    if (isForked) return nullptr;
    std::lock_guard const lock(clients().mutex);
    auto const found = clients().all.find(client.number);
    return found == clients().all.end() ? nullptr : found->second;
}

std::shared_ptr<Client> get(kvpim_client client) {
    if (isForked) throw Problem(KVPIM_ERROR_FORKED, "The client belongs to the process that this one was forked from.");
    auto found = find(client);
    if (!found) throw Problem(KVPIM_ERROR_ENDED, "There is no such client: it was destroyed, or never made.");
    return found;
}

std::string_view textOf(char const* text, char const* name) {
    if (text == nullptr) throw BadRequest(std::string(name) + " is NULL");
    return text;
}

void write(kvpim_error* error, kvpim_error_kind kind, std::string_view text) noexcept {
    if (error == nullptr) return;
    error->kind = kind;
    auto length = std::min(text.size(), sizeof error->text - 1);
    while (length < text.size() && length > 0 && (static_cast<unsigned char>(text[length]) & 0xc0u) == 0x80u) --length;
    std::memcpy(error->text, text.data(), length);
    error->text[length] = '\0';
}

template <class Body>
bool attempt(kvpim_error* error, Body const& body) noexcept {
    try {
        body();
        write(error, KVPIM_ERROR_NONE, "");
        return true;
    } catch (Problem const& problem) {
        write(error, problem.kind, problem.what());
    } catch (BadRequest const& bad) {
        write(error, KVPIM_ERROR_ARGUMENT, bad.what());
    } catch (std::bad_alloc const&) {
        write(error, KVPIM_ERROR_SYSTEM, "There is no more memory.");
    } catch (std::exception const& other) {
        write(error, KVPIM_ERROR_SYSTEM, other.what());
    }
    return false;
}

/// Who gets lines of one kind. Never destroyed, for lines are written to the very end of the process.
class LineCallback {
public:
    /// Waits until nobody is inside the former callback, whose context may go then.
    void set(kvpim_line_callback callback, void* context) {
        auto next = callback == nullptr ? nullptr : std::make_shared<Chosen>(Chosen{callback, context});
        std::unique_lock lock(mutex_);
        next.swap(chosen_);
        if (isInside) return;  // it would wait for itself
        left_.wait(lock, [&former = next] { return former == nullptr || former->inside == 0; });
    }

    /// False where there is none.
    bool call(int kind, std::string_view line) {
        std::unique_lock lock(mutex_);
        auto const chosen = chosen_;
        if (chosen == nullptr) return false;
        ++chosen->inside;
        lock.unlock();
        bool const wasInside = std::exchange(isInside, true);
        chosen->callback(chosen->context, kind, std::string(line).c_str());
        isInside = wasInside;
        lock.lock();
        if (--chosen->inside == 0) left_.notify_all();
        return true;
    }

private:
    struct Chosen {
        kvpim_line_callback callback;
        void* context;
        int inside = 0;  // how many threads
    };
    static thread_local bool isInside;

    std::mutex mutex_;
    std::condition_variable left_;
    std::shared_ptr<Chosen> chosen_;  // guarded by mutex_, as what it holds
};

thread_local bool LineCallback::isInside = false;

LineCallback& logCallback() {
    static auto& callback = *new LineCallback;
    return callback;
}

LineCallback& consoleCallback() {
    static auto& callback = *new LineCallback;
    return callback;
}

std::optional<std::chrono::steady_clock::time_point> endOf(std::int64_t milliseconds) {
    constexpr std::chrono::milliseconds kLongest = 24h * 365;
    if (milliseconds < 0) return std::nullopt;
    return std::chrono::steady_clock::now() + std::min(std::chrono::milliseconds(milliseconds), kLongest);
}

}  // namespace

char const* kvpim_version(void) { return kv::KvPimVersionString; }

char const* kvpim_interface(void) {
    char const* text = "";
    attempt(nullptr, [&] { text = interfaceText().c_str(); });
    return text;
}

bool kvpim_create(char const* options, kvpim_client* client, kvpim_error* error) {
    if (client != nullptr) client->number = 0;
    return attempt(error, [&] {
        if (client == nullptr) throw BadRequest("client is NULL");
        if (isForked)
            throw Problem(KVPIM_ERROR_FORKED,
                          "This process was forked from one that had made clients: fork before the first one.");
        // Else the clients' thread would, and what OpenSSL keeps of its setting up belongs to whoever does that.
        OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
        auto made = Client::make(readClientOptions(parseObject(textOf(options, "options"))));
        watchProcess();
        std::lock_guard const lock(clients().mutex);
        client->number = ++clients().last;
        clients().all.emplace(client->number, std::move(made));
    });
}

void kvpim_destroy(kvpim_client client) {
    attempt(nullptr, [&] {
        if (isForked) return;
        std::unique_lock lock(clients().mutex);
        auto const node = clients().all.extract(client.number);
        lock.unlock();
        if (!node.empty()) node.mapped()->end();
    });
}

bool kvpim_request(kvpim_client client, char const* request, kvpim_error* error) {
    return attempt(error, [&] { get(client)->request(textOf(request, "request"), nullptr); });
}

bool kvpim_request_with_data(kvpim_client client, char const* request, void const* data, size_t size,
                             kvpim_error* error) {
    return attempt(error, [&] {
        if (data == nullptr && size != 0) throw BadRequest("data is NULL");
        auto const text = textOf(request, "request");
        auto const found = get(client);
        auto const* const bytes = static_cast<std::uint8_t const*>(data);
        found->request(text, kv::makeData(kv::KvBytes(bytes, bytes + size)));
    });
}

size_t kvpim_pending(kvpim_client client) {
    auto const found = find(client);
    return found ? found->pending() : 0;
}

kvpim_outcome kvpim_receive(kvpim_client client, int64_t milliseconds, kvpim_message** message) {
    if (message == nullptr) return KVPIM_NOTHING;
    *message = nullptr;
    auto const found = find(client);
    if (!found) return KVPIM_ENDED;
    Inbox::Message taken;
    auto const outcome = found->inbox().take(endOf(milliseconds), taken);
    *message = taken.release();
    return outcome;
}

char const* kvpim_message_text(kvpim_message const* message) { return message ? message->text.c_str() : ""; }

size_t kvpim_message_length(kvpim_message const* message) { return message ? message->text.size() : 0; }

void const* kvpim_message_data(kvpim_message const* message, size_t* size) {
    bool const isThere = message != nullptr && message->data;
    if (size != nullptr) *size = isThere ? message->data->size() : 0;
    if (!isThere) return nullptr;
    return message->data->empty() ? static_cast<void const*>("") : message->data->data();
}

void kvpim_message_free(kvpim_message* message) { delete message; }

int kvpim_fd(kvpim_client client) {
    auto const found = find(client);
    return found ? found->fd() : -1;
}

bool kvpim_poll(kvpim_client client, int64_t milliseconds) {
    auto const found = find(client);
    if (!found || !found->isPolled()) return false;
    return attempt(nullptr, [&] { found->poll(milliseconds); });
}

bool kvpim_set_callback(kvpim_client client, kvpim_callback callback, void* context, kvpim_error* error) {
    return attempt(error, [&] {
        std::function<void(kvpim_message const&)> call;
        if (callback != nullptr) call = [callback, context](kvpim_message const& one) { callback(context, &one); };
        get(client)->setCallback(std::move(call));
    });
}

void kvpim_ignore_line(void*, int, char const*) {}

void kvpim_set_log_callback(kvpim_line_callback callback, void* context) {
    attempt(nullptr, [&] {
        if (callback == nullptr) kv::KvPimKit::setLogHandler(nullptr);
        logCallback().set(callback, context);
        if (callback == nullptr) return;
        kv::KvPimKit::setLogHandler(
            [](std::int64_t level, std::string_view line) { logCallback().call(static_cast<int>(level), line); });
    });
}

void kvpim_set_console_callback(kvpim_line_callback callback, void* context) {
    attempt(nullptr, [&] {
        consoleCallback().set(callback, context);
        kv::KvPimKit::setConsole([](kv::KvConsoleStream stream, std::string_view line) {
            if (consoleCallback().call(stream == kv::KvConsoleStream::error ? 2 : 1, line)) return;
            kv::KvPimKit::writeToStandardStream(stream, line);
        });
    });
}
