// The names of the events that someone handles. The main queue adds to them, the engine asks. Any thread.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_set>

namespace kv::sio {

/// The hash by which a table of texts is asked with a part of another text.
struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

class EventNames {
public:
    void add(std::string_view name) {
        std::lock_guard const lock(mutex_);
        names_.emplace(name);
    }
    bool contains(std::string_view name) const {
        std::lock_guard const lock(mutex_);
        return names_.contains(name);
    }

private:
    mutable std::mutex mutex_;
    std::unordered_set<std::string, TextHash, std::equal_to<>> names_;  // guarded by mutex_
};

}  // namespace kv::sio
