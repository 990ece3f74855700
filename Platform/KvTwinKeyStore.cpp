// Two stores as one. A keyring is locked at one time and open at another; what was kept in the one that was there then
// must be found by whoever finds the other.
#include "Platform/KvKeyStore.h"

#include <mutex>
#include <set>
#include <utility>

namespace kv {
namespace {

using Status = KvKeyStoreStatus;

class TwinKeyStore final : public KvKeyStore {
public:
    TwinKeyStore(std::shared_ptr<KvKeyStore> first, std::shared_ptr<KvKeyStore> second)
        : first_(std::move(first)), second_(std::move(second)) {}

    Status add(KvKeyStoreQuery const& query, std::string_view value) override {
        auto const inFirst = first_->add(query, value);
        auto const inSecond = second_->add(query, value);
        return inFirst == Status::success ? inFirst : inSecond;
    }

    KvKeyStoreMatch copyMatching(KvKeyStoreQuery const& query) override {
        auto match = first_->copyMatching(query);
        bool const isFound = match.status == Status::success;
        if (isFound && !isFirstLook(query)) return match;
        auto other = second_->copyMatching(query);
        if (isFound) {
            if (other.status != Status::success || other.value != match.value) second_->add(query, match.value);
            return match;
        }
        if (other.status != Status::success) return match;
        if (match.status == Status::itemNotFound) first_->add(query, other.value);
        return other;
    }

    Status remove(KvKeyStoreQuery const& query) override {
        auto const fromFirst = first_->remove(query);
        auto const fromSecond = second_->remove(query);
        return fromFirst == Status::itemNotFound ? fromSecond : fromFirst;
    }

private:
    // The two are compared once in a process: they are the same from then on.
    bool isFirstLook(KvKeyStoreQuery const& query) {
        std::lock_guard lock(mutex_);
        return compared_.emplace(query.service, query.account).second;
    }

    std::shared_ptr<KvKeyStore> const first_;
    std::shared_ptr<KvKeyStore> const second_;
    std::mutex mutex_;
    std::set<std::pair<std::string, std::string>> compared_;  // service and account; guarded by mutex_
};

}  // namespace

std::shared_ptr<KvKeyStore> makeTwinKeyStore(std::shared_ptr<KvKeyStore> first, std::shared_ptr<KvKeyStore> second) {
    return std::make_shared<TwinKeyStore>(std::move(first), std::move(second));
}

}  // namespace kv
