// What the library prints, for tests to look at instead of the console.
#pragma once

#include "Platform/KvConsole.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace kv::test {

/// Takes all lines while it is there.
class Printed {
public:
    Printed() {
        setConsole([taken = taken_](KvConsoleStream stream, std::string_view line) {
            std::lock_guard lock(taken->mutex);
            (stream == KvConsoleStream::out ? taken->out : taken->error).append(line).push_back('\n');
        });
    }
    ~Printed() { setConsole(writeToStandardStream); }
    Printed(Printed const&) = delete;
    Printed& operator=(Printed const&) = delete;

    // Since it was asked last.
    std::string out() { return take(taken_->out); }
    std::string error() { return take(taken_->error); }

private:
    struct Taken {
        std::mutex mutex;
        std::string out, error;
    };
    std::string take(std::string& text) {
        std::lock_guard lock(taken_->mutex);
        return std::exchange(text, {});
    }
    std::shared_ptr<Taken> const taken_ = std::make_shared<Taken>();
};

}  // namespace kv::test
