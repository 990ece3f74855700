// What the library says of itself, as its bundle's information entries would.
#pragma once

#include <string>

namespace kv {

inline constexpr char kBundleName[] = "KvPim";
inline constexpr char kBundleShortVersion[] = KVPIM_VERSION;
inline constexpr char kBundleVersion[] = KVPIM_VERSION;

/// "sdkVersion/NAME-VERSION-BUILD", the same string at every call.
inline std::string const& sdkVersionString() {
    static auto const& text =
        *new std::string(std::string("sdkVersion/") + kBundleName + "-" + kBundleShortVersion + "-" + kBundleVersion);
    return text;
}

}  // namespace kv
