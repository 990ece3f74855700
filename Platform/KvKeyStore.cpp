#include "Platform/KvKeyStore.h"

#include "Platform/KvDirectories.h"

#include <mutex>
#include <utility>

namespace kv {
namespace {

constexpr std::chrono::seconds kLongestWait{2};

struct Choice {
    std::mutex mutex;
    // Guarded by mutex.
    std::string directory;
    std::shared_ptr<KvKeyStore> store;
};

Choice& choice() {
    static auto& made = *new Choice;
    return made;
}

std::shared_ptr<KvKeyStore> choose(std::string const& directory) {
    if (!directory.empty()) return makeFileKeyStore(directory);
    auto files = makeFileKeyStore(dataDirectory() + "/kvpim/keys");
    auto service = openSecretServiceKeyStore(kLongestWait);
    return service ? makeTwinKeyStore(std::move(service), std::move(files)) : files;
}

}  // namespace

std::shared_ptr<KvKeyStore> KvKeyStore::shared() {
    std::lock_guard lock(choice().mutex);
    if (!choice().store) choice().store = choose(choice().directory);
    return choice().store;
}

void KvKeyStore::configure(std::string directory) {
    // A choice in progress may hold the lock for two seconds; then it is too late to change it anyway.
    std::unique_lock lock(choice().mutex, std::try_to_lock);
    if (lock) choice().directory = std::move(directory);
}

void KvKeyStore::setShared(std::shared_ptr<KvKeyStore> store) {
    std::lock_guard lock(choice().mutex);
    choice().store = std::move(store);
}

}  // namespace kv
