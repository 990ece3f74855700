// The transcript of the demonstration, and its waiting: whatever is awaited comes within a deadline or ends it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <KvPim/KvPimKit.h>

namespace demo {

/// Something that the transcript would show did not happen.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Stage {
public:
    Stage();

    std::shared_ptr<kv::KvMainQueue> const queue = kv::KvMainQueue::main();

    void scene(std::string_view title) const;
    /// What somebody does.
    void action(std::string_view who, std::string_view what) const;
    /// What reaches somebody.
    void event(std::string_view who, std::string_view what) const;
    void remark(std::string_view text) const;
    /// Runs the queue until `isSo`. Throws Failure, which says who waited for what, when it takes too long.
    void waitUntil(std::string_view who, std::string_view what, std::function<bool()> const& isSo) const;

private:
    void line(std::string_view colour, std::string_view who, std::string_view mark, std::string_view text) const;

    std::chrono::steady_clock::time_point const start_;
    bool const hasColours_;
};

}  // namespace demo
