#include "Classes/Catagory/KvDate.h"

#include <chrono>

namespace kv {

std::int64_t currentTimeStamp() {
    // By way of a floating value on purpose: that is what a time stamp truncates.
    std::chrono::duration<double> const seconds = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::int64_t>(seconds.count() * 1000);
}

}  // namespace kv
