// A small store of texts that lasts, under a service and an account. The user's secret service keeps them where there
// is one that can be used without asking the user anything; private files keep them everywhere, so that nothing is lost
// while the service is locked.
//
// Callable from any thread, but not from one that must not wait: an operation may take two seconds.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kv {

enum class KvKeyStoreStatus : std::int32_t {
    success = 0,
    ioError = -36,          // the file system refused
    parameterError = -50,   // no value that can be kept
    notAvailable = -25291,  // there is nobody to ask, or no answer in time
    itemNotFound = -25300,
    interactionNotAllowed = -25308,  // it would take the user's consent
};

/// What names an item.
struct KvKeyStoreQuery {
    std::string service;
    std::string account;
};

struct KvKeyStoreMatch {
    KvKeyStoreStatus status = KvKeyStoreStatus::success;
    std::string value{};  // with success only
};

class KvKeyStore {
public:
    /// The store of the process, chosen once, at first use: private files below the user's data directory, and in front
    /// of them the secret service if it answers within two seconds and needs no consent.
    static std::shared_ptr<KvKeyStore> shared();
    /// Private files in `directory` instead; an empty name leaves the choice. Before the first use of `shared`.
    static void configure(std::string directory);
    /// Makes `store` that of the process, for tests.
    static void setShared(std::shared_ptr<KvKeyStore> store);

    virtual ~KvKeyStore() = default;
    /// Keeps `value`, in the place of one that is there.
    virtual KvKeyStoreStatus add(KvKeyStoreQuery const& query, std::string_view value) = 0;
    virtual KvKeyStoreMatch copyMatching(KvKeyStoreQuery const& query) = 0;
    virtual KvKeyStoreStatus remove(KvKeyStoreQuery const& query) = 0;
};

/// One file for each item. The directory is made when it is needed.
std::shared_ptr<KvKeyStore> makeFileKeyStore(std::string directory);
/// Two stores that hold the same: what one of them lacks or refuses is in the other. `first` is right where they
/// differ.
std::shared_ptr<KvKeyStore> makeTwinKeyStore(std::shared_ptr<KvKeyStore> first, std::shared_ptr<KvKeyStore> second);
/// Null when there is no secret service that answers within `limit` and can be used at once. `limit` holds for each
/// later operation too.
std::shared_ptr<KvKeyStore> openSecretServiceKeyStore(std::chrono::milliseconds limit);

}  // namespace kv
