// The key store of a desktop: the Secret Service, which is a process of its own that may be absent, locked or stuck.
// Each conversation with it runs on a thread that is left behind when it takes too long, and no prompt is ever shown.
#include "Platform/KvFiles.h"
#include "Platform/KvKeyStore.h"
#include "Platform/KvThread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <future>
#include <optional>

#define G_DISABLE_CAST_CHECKS
#include <dlfcn.h>
#include <fcntl.h>
#include <libsecret/secret.h>
#include <unistd.h>

namespace kv {
namespace {

// ---- libsecret, loaded when there is a session bus. Linked, it and the libraries behind it would be a quarter of what
// every process spends on its start. Each function stands here under its own name, in front of the declared one.

#define KV_LIBSECRET_FUNCTIONS(F)          \
    F(g_bus_get_sync)                      \
    F(g_cancellable_cancel)                \
    F(g_cancellable_new)                   \
    F(g_clear_error)                       \
    F(g_dbus_connection_set_exit_on_close) \
    F(g_error_matches)                     \
    F(g_hash_table_unref)                  \
    F(g_initable_new)                      \
    F(g_io_error_quark)                    \
    F(g_list_free_full)                    \
    F(g_object_unref)                      \
    F(g_set_error_literal)                 \
    F(g_task_propagate_pointer)            \
    F(g_task_report_new_error)             \
    F(g_type_register_static_simple)       \
    F(g_utf8_validate)                     \
    F(secret_attributes_build)             \
    F(secret_collection_for_alias_sync)    \
    F(secret_collection_get_locked)        \
    F(secret_error_get_quark)              \
    F(secret_service_clear_sync)           \
    F(secret_service_get_type)             \
    F(secret_service_lookup_sync)          \
    F(secret_service_search_sync)          \
    F(secret_service_store_sync)           \
    F(secret_value_get)                    \
    F(secret_value_new)                    \
    F(secret_value_unref)

// NOLINTBEGIN(bugprone-macro-parentheses): a name that is declared stands in none
#define KV_DECLARE(name) decltype(&::name) name = nullptr;
KV_LIBSECRET_FUNCTIONS(KV_DECLARE)
#undef KV_DECLARE

// False when it is not there, or lacks something.
bool loadLibsecret() {
    static bool const isLoaded = [] {
        void* const library = ::dlopen("libsecret-1.so.0", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return false;
#define KV_FIND(name)                                                 \
    name = reinterpret_cast<decltype(name)>(::dlsym(library, #name)); \
    if (name == nullptr) return false;
        KV_LIBSECRET_FUNCTIONS(KV_FIND)
#undef KV_FIND
        // NOLINTEND(bugprone-macro-parentheses)
        return true;
    }();
    return isLoaded;
}

// One stuck conversation is paid for in full; those that follow soon after fail at once.
constexpr std::chrono::seconds kRestAfterTimeout{30};

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Owned = std::unique_ptr<T, Unref>;

class Error {
public:
    ~Error() { g_clear_error(&error_); }
    GError** out() { return &error_; }
    KvKeyStoreStatus status() const {
        bool const needsUser = g_error_matches(error_, SECRET_ERROR, SECRET_ERROR_IS_LOCKED) ||
                               g_error_matches(error_, G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED);
        return needsUser ? KvKeyStoreStatus::interactionNotAllowed : KvKeyStoreStatus::notAvailable;
    }
    explicit operator bool() const { return error_ != nullptr; }

private:
    GError* error_ = nullptr;
};

// ---- A service that refuses every prompt which an operation would show

constexpr char kNoPrompt[] = "the user is not asked";

GVariant* refusePrompt(SecretService*, SecretPrompt*, GCancellable*, GVariantType const*, GError** error) {
    g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, kNoPrompt);
    return nullptr;
}

void refusePromptLater(SecretService* service, SecretPrompt*, GVariantType const*, GCancellable*,
                       GAsyncReadyCallback done, gpointer data) {
    g_task_report_new_error(service, done, data, nullptr, G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, "%s", kNoPrompt);
}

GVariant* finishPrompt(SecretService*, GAsyncResult* result, GError** error) {
    return static_cast<GVariant*>(g_task_propagate_pointer(G_TASK(result), error));
}

GType promptlessServiceType() {
    static GType const type = g_type_register_static_simple(
        SECRET_TYPE_SERVICE, "KvPromptlessSecretService", sizeof(SecretServiceClass),
        [](gpointer klass, gpointer) {
            auto* const service = static_cast<SecretServiceClass*>(klass);
            service->prompt_sync = refusePrompt;
            service->prompt_async = refusePromptLater;
            service->prompt_finish = finishPrompt;
        },
        sizeof(SecretService), nullptr, G_TYPE_FLAG_NONE);
    return type;
}

// ---- Finding it

// Without an address of the bus GLib would start a program to find one.
bool hasSessionBus() {
    // NOLINTBEGIN(concurrency-mt-unsafe): the library sets no variables
    if (char const* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS")) return *address != '\0';
    char const* const runtime = std::getenv("XDG_RUNTIME_DIR");
    // NOLINTEND(concurrency-mt-unsafe)
    return runtime != nullptr && ::access((std::string(runtime) + "/bus").c_str(), F_OK) == 0;
}

// Null unless something can be kept there at once.
Owned<SecretService> openService(GCancellable* cancellable) {
    Error error;
    Owned<GDBusConnection> const connection(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, error.out()));
    if (!connection) return nullptr;
    g_dbus_connection_set_exit_on_close(connection.get(), FALSE);  // or the end of the bus would end the process
    Owned<SecretService> service(static_cast<SecretService*>(g_initable_new(
        promptlessServiceType(), cancellable, error.out(), "flags", SECRET_SERVICE_OPEN_SESSION, nullptr)));
    if (!service) return nullptr;
    Owned<SecretCollection> const collection(secret_collection_for_alias_sync(
        service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, cancellable, error.out()));
    if (!collection || secret_collection_get_locked(collection.get())) return nullptr;
    return service;
}

// ---- Talking to it

// GLib ends the process when it finds no descriptor for a conversation.
bool hasDescriptorsToSpare() {
    std::array<KvFileDescriptor, 8> spare;
    return std::ranges::all_of(spare, [](KvFileDescriptor& one) {
        one = KvFileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        return static_cast<bool>(one);
    });
}

/// Runs `work(cancellable)` on a thread of its own. Nothing when it has not ended within `limit`; it is told to stop.
template <class Work>
auto runWithin(std::chrono::milliseconds limit, Work work) {
    using Answer = decltype(work(static_cast<GCancellable*>(nullptr)));
    if (!hasDescriptorsToSpare()) return std::optional<Answer>();
    std::shared_ptr<GCancellable> const cancellable(g_cancellable_new(), Unref());
    auto const task = std::make_shared<std::packaged_task<Answer()>>(
        [cancellable, work = std::move(work)] { return work(cancellable.get()); });
    auto answer = task->get_future();
    if (!startThread("kv.secrets", [task] { (*task)(); })) return std::optional<Answer>();
    if (answer.wait_for(limit) == std::future_status::ready) return std::optional<Answer>(answer.get());
    g_cancellable_cancel(cancellable.get());
    return std::optional<Answer>();
}

SecretSchema const& schema() {
    static SecretSchema const value = {
        "com.kvpim.KeyStore",
        SECRET_SCHEMA_NONE,
        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING}, {"account", SECRET_SCHEMA_ATTRIBUTE_STRING}, {}},
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr};
    return value;
}

struct Attributes {
    explicit Attributes(KvKeyStoreQuery const& query)
        : table(secret_attributes_build(&schema(), "service", query.service.c_str(), "account", query.account.c_str(),
                                        nullptr)) {}
    Attributes(Attributes const&) = delete;
    Attributes& operator=(Attributes const&) = delete;
    ~Attributes() { g_hash_table_unref(table); }
    GHashTable* table;
};

bool isText(std::string_view text) {
    return text.find('\0') == std::string_view::npos &&
           g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
}

// Locked items are found too, which is all that a removal that removed nothing needs to know.
bool isThere(SecretService* service, Attributes const& item, GCancellable* cancellable) {
    Error error;
    GList* const found =
        secret_service_search_sync(service, &schema(), item.table, SECRET_SEARCH_NONE, cancellable, error.out());
    bool const isAny = found != nullptr;
    g_list_free_full(found, g_object_unref);
    return isAny;
}

class SecretServiceKeyStore final : public KvKeyStore {
public:
    SecretServiceKeyStore(Owned<SecretService> service, std::chrono::milliseconds limit)
        : service_(std::move(service)), limit_(limit) {}

    KvKeyStoreStatus add(KvKeyStoreQuery const& query, std::string_view value) override {
        if (!isText(value)) return KvKeyStoreStatus::parameterError;
        return talk(
                   query,
                   [text = std::string(value)](SecretService* service, Attributes const& item, KvKeyStoreQuery const& q,
                                               GCancellable* cancellable) -> KvKeyStoreMatch {
                       Error error;
                       SecretValue* const secret =
                           secret_value_new(text.data(), static_cast<gssize>(text.size()), "text/plain");
                       secret_service_store_sync(service, &schema(), item.table, SECRET_COLLECTION_DEFAULT,
                                                 q.account.c_str(), secret, cancellable, error.out());
                       secret_value_unref(secret);
                       return {error ? error.status() : KvKeyStoreStatus::success};
                   })
            .status;
    }

    KvKeyStoreMatch copyMatching(KvKeyStoreQuery const& query) override {
        return talk(query,
                    [](SecretService* service, Attributes const& item, KvKeyStoreQuery const&,
                       GCancellable* cancellable) -> KvKeyStoreMatch {
                        Error error;
                        SecretValue* const secret =
                            secret_service_lookup_sync(service, &schema(), item.table, cancellable, error.out());
                        if (error) return {error.status()};
                        if (secret == nullptr) return {KvKeyStoreStatus::itemNotFound};
                        gsize size = 0;
                        gchar const* const bytes = secret_value_get(secret, &size);
                        KvKeyStoreMatch match{KvKeyStoreStatus::success, std::string(bytes, size)};
                        secret_value_unref(secret);
                        return match;
                    });
    }

    KvKeyStoreStatus remove(KvKeyStoreQuery const& query) override {
        return talk(query,
                    [](SecretService* service, Attributes const& item, KvKeyStoreQuery const&,
                       GCancellable* cancellable) -> KvKeyStoreMatch {
                        Error error;
                        bool const isRemoved =
                            secret_service_clear_sync(service, &schema(), item.table, cancellable, error.out());
                        if (error) return {error.status()};
                        if (isRemoved) return {KvKeyStoreStatus::success};
                        return {isThere(service, item, cancellable) ? KvKeyStoreStatus::interactionNotAllowed
                                                                    : KvKeyStoreStatus::itemNotFound};
                    })
            .status;
    }

private:
    template <class Operation>
    KvKeyStoreMatch talk(KvKeyStoreQuery const& query, Operation operation) {
        if (!isText(query.service) || !isText(query.account)) return {KvKeyStoreStatus::parameterError};
        auto const now = std::chrono::steady_clock::now().time_since_epoch();
        if (now < restUntil_.load()) return {KvKeyStoreStatus::notAvailable};
        auto const match = runWithin(limit_, [service = service_, query, operation](GCancellable* cancellable) {
            return operation(service.get(), Attributes(query), query, cancellable);
        });
        if (!match) restUntil_ = now + limit_ + kRestAfterTimeout;
        return match.value_or(KvKeyStoreMatch{KvKeyStoreStatus::notAvailable});
    }

    std::shared_ptr<SecretService> const service_;
    std::chrono::milliseconds const limit_;
    std::atomic<std::chrono::steady_clock::duration> restUntil_{std::chrono::steady_clock::duration::min()};
};

}  // namespace

std::shared_ptr<KvKeyStore> openSecretServiceKeyStore(std::chrono::milliseconds limit) {
    if (!hasSessionBus() || !loadLibsecret()) return nullptr;
    auto service = runWithin(limit, [](GCancellable* cancellable) { return openService(cancellable); });
    if (!service || !*service) return nullptr;
    return std::make_shared<SecretServiceKeyStore>(*std::move(service), limit);
}

}  // namespace kv
