#include "Net/Trust.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <tuple>

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <sys/stat.h>

namespace kv::net {
namespace {

namespace fs = std::filesystem;

// By which a file is known to be another one than before; all zero for none.
using Version = std::tuple<dev_t, ino_t, off_t, time_t, long>;

Version versionOf(std::string const& path) {
    struct stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// A directory in which each authority is found by the hash of its name: nothing is read before it is asked for.
bool isHashed(char const* directory) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        auto const name = entry->path().filename().string();
        bool const isHash = name.size() == 10 && name.ends_with(".0") &&
                            std::all_of(name.begin(), name.begin() + 8, [](char c) { return std::isxdigit(c) != 0; });
        if (isHash) return true;
    }
    return false;
}

std::string openSslText() {
    char const* const reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return std::string("TLS: ") + (reason == nullptr ? "cannot be read" : reason);
}

std::shared_ptr<X509_STORE> read(std::string const& caFile, std::string& error) {
    std::shared_ptr<X509_STORE> store(X509_STORE_new(), X509_STORE_free);
    char const* const directory = X509_get_default_cert_dir();
    bool const isRead = isHashed(directory) ? X509_STORE_load_path(store.get(), directory) == 1
                                            : X509_STORE_load_file(store.get(), X509_get_default_cert_file()) == 1;
    if (!isRead) ERR_clear_error();  // a system without authorities trusts those of the file alone
    if (!caFile.empty() && X509_STORE_load_file(store.get(), caFile.c_str()) != 1) {
        error = openSslText() + ", CA file " + caFile;
        return nullptr;
    }
    return store;
}

}  // namespace

std::shared_ptr<X509_STORE> trustedAuthorities(std::string const& caFile, std::string& error) {
    struct Known {
        Version file, directory;
        std::shared_ptr<X509_STORE> store;
    };
    static std::mutex mutex;
    static auto& known = *new std::map<std::string, Known>;
    std::lock_guard const lock(mutex);
    auto& entry = known[caFile];
    auto const file = versionOf(caFile), directory = versionOf(X509_get_default_cert_dir());
    if (!entry.store || entry.file != file || entry.directory != directory)
        entry = {file, directory, read(caFile, error)};
    return entry.store;
}

}  // namespace kv::net
