#include "Classes/Catagory/KvDate.h"

#include <chrono>

namespace kv {

std::int64_t currentTimeStamp() {
    std::chrono::duration<double> const seconds = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::int64_t>(seconds.count() * 1000);
}

}  // namespace kv
