// The key store of machines without a secret service: one file for each item, readable by its user alone.
#include "Platform/KvFiles.h"
#include "Platform/KvKeyStore.h"
#include "Platform/KvSystem.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

constexpr off_t kLargestValue = 1 << 20;

std::string fileNameOf(KvKeyStoreQuery const& query) {
    return asFileName(query.service) + "~" + asFileName(query.account);
}

std::string temporaryName() {
    std::array<std::uint8_t, 8> bytes{};
    fillWithRandom(bytes);  // no process id: those of two containers that share a home may be equal
    auto const number = std::bit_cast<std::uint64_t>(bytes);
    return ".new." + std::to_string(number);
}

class FileKeyStore final : public KvKeyStore {
public:
    explicit FileKeyStore(std::string directory) : directory_(std::move(directory)) {
        while (directory_.size() > 1 && directory_.back() == '/') directory_.pop_back();  // O_NOFOLLOW would follow
    }

    KvKeyStoreStatus add(KvKeyStoreQuery const& query, std::string_view value) override {
        auto const directory = open();
        if (!directory) return KvKeyStoreStatus::notAvailable;
        if (value.size() > static_cast<std::size_t>(kLargestValue)) return KvKeyStoreStatus::parameterError;
        auto const temporary = temporaryName();
        KvFileDescriptor const file(
            ::openat(directory.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file) return KvKeyStoreStatus::ioError;
        // Readers see the old item or the new one, whole, whatever happens in between.
        bool const isStored =
            writeAll(file.get(), value) && ::fsync(file.get()) == 0 &&
            ::renameat(directory.get(), temporary.c_str(), directory.get(), fileNameOf(query).c_str()) == 0;
        if (!isStored) {
            ::unlinkat(directory.get(), temporary.c_str(), 0);
            return KvKeyStoreStatus::ioError;
        }
        ::fsync(directory.get());
        return KvKeyStoreStatus::success;
    }

    KvKeyStoreMatch copyMatching(KvKeyStoreQuery const& query) override {
        auto const directory = open();
        if (!directory) return {KvKeyStoreStatus::notAvailable};
        KvFileDescriptor const file(
            ::openat(directory.get(), fileNameOf(query).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!file) return {errno == ENOENT ? KvKeyStoreStatus::itemNotFound : KvKeyStoreStatus::ioError};
        struct stat status {};
        bool const isItem = ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
                            status.st_uid == ::geteuid() && status.st_size <= kLargestValue;
        if (!isItem) return {KvKeyStoreStatus::ioError};
        std::string value(static_cast<std::size_t>(status.st_size), '\0');
        ssize_t const count = ::read(file.get(), value.data(), value.size());
        if (count != status.st_size) return {KvKeyStoreStatus::ioError};
        return {KvKeyStoreStatus::success, std::move(value)};
    }

    KvKeyStoreStatus remove(KvKeyStoreQuery const& query) override {
        auto const directory = open();
        if (!directory) return KvKeyStoreStatus::notAvailable;
        if (::unlinkat(directory.get(), fileNameOf(query).c_str(), 0) == 0) return KvKeyStoreStatus::success;
        return errno == ENOENT ? KvKeyStoreStatus::itemNotFound : KvKeyStoreStatus::ioError;
    }

private:
    // The directory, private to this user by the time it is returned; none when it cannot be.
    KvFileDescriptor open() const {
        createDirectories(directory_);
        KvFileDescriptor directory(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat status {};
        if (!directory) tellOfTooFewDescriptors();
        if (!directory || ::fstat(directory.get(), &status) != 0 || status.st_uid != ::geteuid()) return {};
        if ((status.st_mode & 0777) != 0700 && ::fchmod(directory.get(), 0700) != 0) return {};
        return directory;
    }

    std::string directory_;
};

}  // namespace

std::shared_ptr<KvKeyStore> makeFileKeyStore(std::string directory) {
    return std::make_shared<FileKeyStore>(std::move(directory));
}

}  // namespace kv
