#include "Classes/Utils/Logan/collector/Util/WnKeyChainStore.h"

#include "Platform/KvConsole.h"
#include "Platform/KvDirectories.h"
#include "Platform/KvUtf8.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace kv {
namespace {

// The three lines differ in the blank before their end.
constexpr char kAddError[] = "SecItemAdd error, status: %ld %08lX %4.4s";
constexpr char kReadError[] = "SecItemCopyMatching error, status: %ld %08lX %4.4s ";
constexpr char kDeleteError[] = "SecItemDelete error, status: %ld %08lX %4.4s ";
constexpr std::size_t kMostDigits = 20;

template <std::size_t N>
bool succeeded(KvKeyStoreStatus status, char const (&format)[N]) {
    if (status == KvKeyStoreStatus::success) return true;
    auto const number = static_cast<std::int32_t>(status);
    std::array<char, sizeof number + 1> characters{};
    std::memcpy(characters.data(), &number, sizeof number);
    std::array<char, N + 2 * kMostDigits> line{};
    std::snprintf(line.data(), line.size(), format, static_cast<long>(number),
                  static_cast<unsigned long>(static_cast<std::uint32_t>(number)), characters.data());
    printLine(KvConsoleStream::out, line.data());
    return false;
}

std::string const& serviceNamed(std::string const& application) {
    static auto const& service = *new std::string(application.empty() ? executableName() : application);
    return service;
}

}  // namespace

void WnKeyChainStore::configure(std::string const& application) { serviceNamed(application); }

std::string const& WnKeyChainStore::defaultService() { return serviceNamed({}); }

KvKeyStoreQuery WnKeyChainStore::getKeychainQuery(std::string_view key) { return {defaultService(), std::string(key)}; }

bool WnKeyChainStore::setString(std::string_view string, std::string_view key) {
    auto const store = KvKeyStore::shared();
    auto const query = getKeychainQuery(key);
    store->remove(query);
    return succeeded(store->add(query, string), kAddError);
}

std::optional<std::string> WnKeyChainStore::stringForKey(std::string_view key) {
    auto match = KvKeyStore::shared()->copyMatching(getKeychainQuery(key));
    if (!succeeded(match.status, kReadError) || !isValidUtf8(match.value)) return std::nullopt;
    return std::move(match.value);
}

bool WnKeyChainStore::deleteKey(std::string_view key) {
    return succeeded(KvKeyStore::shared()->remove(getKeychainQuery(key)), kDeleteError);
}

}  // namespace kv
