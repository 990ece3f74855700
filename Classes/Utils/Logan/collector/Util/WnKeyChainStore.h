// Strings by key in the key store of the process. Each failure prints a line on standard output. Not for the main
// thread: the key store may keep its caller waiting.
#pragma once

#include "Platform/KvKeyStore.h"

#include <optional>
#include <string>
#include <string_view>

namespace kv {

class WnKeyChainStore {
public:
    /// What the items of this program are kept under, instead of the name of its executable; an empty name leaves that.
    /// The first call counts, and only before the first use.
    static void configure(std::string const& application);
    /// What the items of this program are kept under: "" if its executable has no name.
    static std::string const& defaultService();
    static KvKeyStoreQuery getKeychainQuery(std::string_view key);
    /// Replaces what is there. False when the store refuses.
    static bool setString(std::string_view string, std::string_view key);
    /// Nothing when there is none, or it is not UTF-8.
    static std::optional<std::string> stringForKey(std::string_view key);
    static bool deleteKey(std::string_view key);
};

}  // namespace kv
