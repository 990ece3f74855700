#pragma once

#include <string>

namespace kv {

/// Random identifiers, and the one that stands for this device.
class WnUUIDHelper {
public:
    /// A random UUID in its canonical text form, upper case.
    static std::string uuidString();
    /// A random UUID as 32 lower-case hexadecimal digits.
    static std::string uuid();
    /// The device's identifier, made on first use and kept in the key store, where it is looked up at each call. When
    /// it cannot be kept, the next call makes another one. Not for the main thread.
    static std::string uuidForDevice();
};

}  // namespace kv
