// Which events someone handles: the main queue adds their names, the engine asks. Any thread. Only the names' hashes
// are kept, because every client has a dozen of them: an event whose hash happens to be the same is parsed for nobody.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string_view>
#include <vector>

namespace kv::sio {

class EventNames {
public:
    void add(std::string_view name) {
        auto const hash = hashOf(name);
        std::lock_guard const lock(mutex_);
        hashes_.insert(std::ranges::lower_bound(hashes_, hash), hash);
    }
    bool mayContain(std::string_view name) const {
        auto const hash = hashOf(name);
        std::lock_guard const lock(mutex_);
        return std::ranges::binary_search(hashes_, hash);
    }

private:
    static std::size_t hashOf(std::string_view name) { return std::hash<std::string_view>()(name); }

    mutable std::mutex mutex_;
    std::vector<std::size_t> hashes_;  // guarded by mutex_, sorted
};

}  // namespace kv::sio
