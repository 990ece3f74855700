#include "Classes/Utils/Logan/collector/Util/WnUUIDHelper.h"

#include "Classes/Utils/Logan/collector/Util/WnKeyChainStore.h"

#include <algorithm>
#include <cctype>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace kv {
namespace {

constexpr char kDeviceKey[] = "com.wn.device.uuid";

std::string randomUuid() { return boost::uuids::to_string(boost::uuids::random_generator_pure()()); }

}  // namespace

std::string WnUUIDHelper::uuidString() {
    std::string text = randomUuid();
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

std::string WnUUIDHelper::uuid() {
    std::string text = randomUuid();
    std::erase(text, '-');
    return text;
}

std::string WnUUIDHelper::uuidForDevice() {
    if (auto const kept = WnKeyChainStore::stringForKey(kDeviceKey)) return *kept;
    std::string made = uuid();
    WnKeyChainStore::setString(made, kDeviceKey);
    return made;
}

}  // namespace kv
