#include "Platform/KvQueueDescriptor.h"
#include "Platform/KvThread.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kv {
namespace {

// How late a timer or a connection of a queue may be that an application's own loop drives.
constexpr std::chrono::milliseconds kTick{5};

// select() has no descriptor for others to wait on: they are told to have a look, again and again.
class Ticks {
public:
    explicit Ticks(KvWakeUp const& wakeUp)
        : thread_(makeThread("kv.ticks", [this, &wakeUp] {
              std::unique_lock lock(mutex_);
              while (!over_.wait_for(lock, kTick, [this] { return isOver_; })) wakeUp.raise();
          })) {}
    ~Ticks() {
        {
            std::lock_guard const lock(mutex_);
            isOver_ = true;
        }
        over_.notify_one();
        if (thread_.joinable()) thread_.join();
    }
    Ticks(Ticks const&) = delete;
    Ticks& operator=(Ticks const&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable over_;
    bool isOver_ = false;  // guarded by the mutex
    std::thread thread_;
};

}  // namespace

int KvQueueDescriptor::get() {
    static std::mutex mutex;
    std::lock_guard const lock(mutex);
    if (!help_) help_ = std::make_shared<Ticks>(wakeUp_);
    return wakeUp_.fd();
}

}  // namespace kv
