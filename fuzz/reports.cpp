// The directory of event reports, in which other programs and other processes of the same program do as they like. An
// input is lines:
//
//     wTEXT   a record               WN      N records                 vTEXT   a record of another process
//     g       which file is next?    u       that file was uploaded    r       the process starts again
//     +N      N seconds pass         xNAME   something is deleted      fNAME   a file, with its name in it
//     eNAME   an empty file          dNAME   a directory               lNAME   a link into nowhere
//     pNAME   a pipe                 bNAME   a file among the uploaded ones
#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileManager.h"
#include "fuzz/support/Input.h"
#include "tests/support/TemporaryDirectory.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <set>
#include <string>

#include <sys/stat.h>

namespace kv::fuzz {
namespace {

namespace fs = std::filesystem;
constexpr int kMostRecords = 250, kMostSeconds = 1'000'000;

class Directory {
public:
    void line(std::string_view line) {
        char const what = line.empty() ? '\0' : line.front();
        auto const rest = std::string(line.substr(std::min<std::size_t>(1, line.size())));
        if (std::string_view("wvW").find(what) == std::string_view::npos) drain();
        switch (what) {
            case 'w':
                return write(*manager_, rest);
            case 'v':
                return write(other_, rest);
            case 'W':
                for (int left = numberOf(rest, kMostRecords); left > 0; --left) write(*manager_, "many");
                return;
            case 'g':
                next();
                return;
            case 'u':
                return upload();
            case 'r':
                manager_.reset();
                manager_.emplace(logan_, true, clock_);
                uploaded_.clear();
                return;
            case '+':
                return clock_->advance(std::chrono::seconds(numberOf(rest, kMostSeconds)));
            default:
                return interfere(what, rest);
        }
    }

    void finish() {
        drain();
        if (isLeftAlone_) require(countRecords(logan_) + countRecords(backup_) == written_, "no record is lost");
    }

private:
    static int numberOf(std::string_view text, int most) {
        int number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        return std::clamp(number, 0, most);
    }

    void drain() {
        manager_->drain();
        other_.drain();
    }

    void write(WnLoganFileManager& manager, std::string const& text) {
        ++written_;
        manager.writeLog(text);
    }

    std::optional<std::string> next() {
        auto path = manager_->getWaitUploadFilePath();
        if (!path) return path;
        require(path->starts_with(logan_ + "/"), "a file of the directory is next");
        require(path->find('/', logan_.size() + 1) == std::string::npos, "nothing below the directory is next");
        struct stat status {};
        bool const exists = ::lstat(path->c_str(), &status) == 0;
        require(!exists || !uploaded_.contains({*path, status.st_ino}), "no file is uploaded twice");
        return path;
    }

    void upload() {
        auto const path = next();
        if (!path) return;
        struct stat status {};
        // Another file may get the number of one that is gone: only what stayed in its place is remembered.
        bool const exists = ::lstat(path->c_str(), &status) == 0;
        manager_->fileWasUploaded(*path);
        struct stat after {};
        bool const stays = exists && ::lstat(path->c_str(), &after) == 0 && after.st_ino == status.st_ino;
        if (stays) uploaded_.insert({*path, status.st_ino});
    }

    void interfere(char what, std::string const& name) {
        if (name.empty() || name.find('/') != std::string::npos || name.find('\0') != std::string::npos) return;
        if (name == "." || name == ".." || std::string_view("xfedlpb").find(what) == std::string_view::npos) return;
        isLeftAlone_ = false;
        std::error_code ignored;
        fs::create_directories(logan_, ignored);
        fs::create_directories(backup_, ignored);
        auto const path = (what == 'b' ? backup_ : logan_) + "/" + name;
        if (what != 'x' && fs::exists(fs::symlink_status(path, ignored))) return;  // opening a pipe would wait
        switch (what) {
            case 'x':
                fs::remove_all(name == "logan dir" ? logan_ : path, ignored);
                uploaded_.clear();
                break;
            case 'e':
                makeFile(path, "");
                break;
            case 'd':
                fs::create_directory(path, ignored);
                break;
            case 'l':
                fs::create_symlink("nowhere", path, ignored);
                break;
            case 'p':
                ::mkfifo(path.c_str(), 0600);
                break;
            default:
                makeFile(path, name);
        }
    }

    static std::size_t countRecords(std::string const& directory) {
        std::error_code ignored;
        std::size_t count = 0;
        for (auto const& entry : fs::directory_iterator(directory, ignored)) count += linesOf(entry.path()).size();
        return count;
    }

    TemporaryDirectory const directory_;
    std::string const logan_ = directory_.path("logan"), backup_ = logan_ + "_bak";
    std::shared_ptr<KvManualClock> const clock_ =
        std::make_shared<KvManualClock>(KvClock::WallTime(std::chrono::seconds(1'700'000'000)));
    std::optional<WnLoganFileManager> manager_{std::in_place, logan_, true, clock_};
    WnLoganFileManager other_{logan_, true, clock_};
    std::size_t written_ = 0;
    bool isLeftAlone_ = true;
    std::set<std::pair<std::string, ino_t>> uploaded_;  // and is still there
};

}  // namespace

void run(Input input) {
    Directory directory;
    while (!input.isEmpty()) directory.line(input.takeLine());
    directory.finish();
}

}  // namespace kv::fuzz
