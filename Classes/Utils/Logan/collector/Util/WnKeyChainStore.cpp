#include "Classes/Utils/Logan/collector/Util/WnKeyChainStore.h"

#include "Platform/KvConsole.h"
#include "SocketIO/core/Utf8.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

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

std::string executableName() {
    std::error_code error;
    std::string name = std::filesystem::read_symlink("/proc/self/exe", error).filename();
    // The mark of a program that was replaced while it runs.
    if (std::string_view const mark = " (deleted)"; name.ends_with(mark)) name.resize(name.size() - mark.size());
    return name;
}

}  // namespace

std::string const& WnKeyChainStore::defaultService() {
    static auto const& service = *new std::string(executableName());
    return service;
}

KvKeyStoreQuery WnKeyChainStore::getKeychainQuery(std::string_view key) { return {defaultService(), std::string(key)}; }

bool WnKeyChainStore::setString(std::string_view string, std::string_view key) {
    auto const store = KvKeyStore::shared();
    auto const query = getKeychainQuery(key);
    store->remove(query);
    return succeeded(store->add(query, string), kAddError);
}

std::optional<std::string> WnKeyChainStore::stringForKey(std::string_view key) {
    auto match = KvKeyStore::shared()->copyMatching(getKeychainQuery(key));
    if (!succeeded(match.status, kReadError) || !sio::isValidUtf8(match.value)) return std::nullopt;
    return std::move(match.value);
}

bool WnKeyChainStore::deleteKey(std::string_view key) {
    return succeeded(KvKeyStore::shared()->remove(getKeychainQuery(key)), kDeleteError);
}

}  // namespace kv
