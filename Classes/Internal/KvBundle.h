// What the library says of itself, as its bundle's information entries would.
#pragma once

namespace kv {

inline constexpr char kBundleName[] = "KvPim";
inline constexpr char kBundleShortVersion[] = KVPIM_VERSION;
inline constexpr char kBundleVersion[] = KVPIM_VERSION;

}  // namespace kv
