#include "Classes/Doctor/KvOwnGround.h"

#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvDirectories.h"
#include "Platform/KvFiles.h"
#include "Platform/KvKeyStore.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

namespace fs = std::filesystem;
using Step = KvPimDoctor::Step;
using Outcome = KvPimDoctor::Outcome;

constexpr mode_t kOthersWrite = 022;
constexpr std::chrono::seconds kSecretServiceTime{2};

void fail(Step& step, std::string found, std::string advice) {
    step.outcome = Outcome::failed;
    step.found = std::move(found);
    step.advice = std::move(advice);
}

// Whether something can really be written there: permissions do not tell of full disks and read-only mounts.
std::error_code tryToWrite(std::string const& directory) {
    auto path = directory + "/.kvpim-doctor-XXXXXX";
    KvFileDescriptor const file(::mkstemp(path.data()));
    if (!file) return lastError();
    auto const error = writeAll(file.get(), "?") ? std::error_code() : lastError();
    ::unlink(path.c_str());
    return error;
}

// `option`: what names another directory.
void examineDirectory(Step& step, std::string const& directory, std::string const& option) {
    step.details.emplace_back("directory", directory);
    auto const advice = "Have it belong to this user, with the permissions 700, or name another one: " + option + ".";
    auto existing = fs::path(directory);
    std::error_code error;
    while (!fs::exists(existing, error) && existing.has_relative_path()) existing = existing.parent_path();
    if (!fs::is_directory(existing, error)) return fail(step, existing.string() + " is no directory", advice);
    bool const isThere = existing == fs::path(directory);
    if (auto const refusal = tryToWrite(existing)) {
        auto const what = isThere ? directory : directory + " is not there, and " + existing.string();
        return fail(step, what + " cannot be written to: " + refusal.message(), advice);
    }
    step.found = isThere ? directory + " can be written to" : directory + " is not there yet, and can be made";
    if (!isThere) return;
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) return;
    std::array<char, 8> mode{};
    std::snprintf(mode.data(), mode.size(), "%03o", static_cast<unsigned>(status.st_mode & 0777));
    step.details.emplace_back("permissions", mode.data());
    bool const isOthers = status.st_uid != ::geteuid();
    if (!isOthers && (status.st_mode & kOthersWrite) == 0) return;
    step.outcome = Outcome::warned;
    step.found += isOthers ? ", but belongs to another user" : std::string(", but by others too: ") + mode.data();
    step.advice = advice;
}

void examineKeys(Step& step, std::string const& directory) {
    KvKeyStoreQuery const query{"kvpim-doctor", std::to_string(::getpid())};
    auto const store = makeFileKeyStore(directory);
    bool const isKept = store->add(query, "kept") == KvKeyStoreStatus::success;
    bool const isFound = store->copyMatching(query).value == "kept";
    bool const isRemoved = store->remove(query) == KvKeyStoreStatus::success;
    if (!isKept || !isFound || !isRemoved)
        fail(step, "What is kept in " + directory + " is not found again", "Check the file system that it is on.");
}

template <class Examine>
Step timed(std::string name, Examine examine) {
    Step step{.name = std::move(name)};
    auto const start = std::chrono::steady_clock::now();
    examine(step);
    step.took = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    return step;
}

}  // namespace

std::vector<Step> examineOwnGround(KvPimEnvConfig const& config) {
    auto directories = timed("directories", [&](Step& step) {
        examineDirectory(step, LoganManager::directoryOf(config), "`envConfig.cachesDirectory` (--caches-dir)");
    });
    auto keys = timed("key store", [&](Step& step) {
        bool const isNamed = !config.keyStoreDirectory.empty();
        auto const directory = isNamed ? config.keyStoreDirectory : dataDirectory() + "/kvpim/keys";
        examineDirectory(step, directory, "`envConfig.keyStoreDirectory` (--key-store-dir)");
        std::error_code error;
        if (step.outcome != Outcome::failed && fs::is_directory(directory, error)) examineKeys(step, directory);
        if (isNamed) return;
        bool const isThere = openSecretServiceKeyStore(kSecretServiceTime) != nullptr;
        step.details.emplace_back("secret service", isThere ? "in use, beside the directory" : "none, or it is locked");
    });
    return {std::move(directories), std::move(keys)};
}

}  // namespace kv
