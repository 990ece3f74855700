#include "Classes/Utils/Recording/KvRecordFile.h"

#include "Classes/KvPimKit.h"
#include "Classes/Utils/KvLog.h"
#include "Net/Base64.h"
#include "Platform/KvJsonText.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace json = boost::json;
namespace {

constexpr std::string_view kStart = R"({"format":"kvpim-record")";
constexpr int kVersion = 1;
constexpr int kMostTries = 20;
constexpr std::size_t kMostAppId = 200;  // in the header, which must fit
constexpr std::size_t kLeastBytes = 64u << 10;
constexpr std::size_t kMostWaiting = 16u << 20;    // in memory
constexpr std::size_t kMostUnwritten = 64u << 10;  // of lines that are made: then they are written

double seconds(std::chrono::microseconds time) { return static_cast<double>(time.count()) / 1e6; }

std::string utc(std::chrono::system_clock::time_point time) {
    auto const micros = std::chrono::floor<std::chrono::microseconds>(time.time_since_epoch()).count();
    std::time_t const whole = micros / 1'000'000;
    std::tm parts{};
    ::gmtime_r(&whole, &parts);
    std::array<char, 64> text{};
    auto const length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%06dZ", static_cast<int>(micros % 1'000'000));
    return text.data();
}

std::string errorText() { return lastError().message(); }

// What forbids that a file of this name goes, or is replaced. One that is not there may.
std::string problemOfOld(std::string const& path, KvFileDescriptor& held) {
    held = KvFileDescriptor(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!held) return errno == ENOENT ? "" : "cannot read " + path + ": " + errorText();
    struct stat status {};
    if (::fstat(held.get(), &status) != 0 || !S_ISREG(status.st_mode)) return path + " is no plain file";
    std::array<char, kStart.size()> start{};
    auto const count = ::pread(held.get(), start.data(), start.size(), 0);
    if (count != 0 && std::string_view(start.data(), start.size()) != kStart)
        return path + " is there, and is no record";
    // A client of this process that has just gone may not have closed it yet.
    for (int i = 0; i < kMostTries; ++i) {
        if (::flock(held.get(), LOCK_EX | LOCK_NB) == 0) return "";
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return "another process records to " + path;
}

std::string lineOf(KvRecordEntry const& entry, bool withContents) {
    json::object line{{"t", seconds(entry.time)}};
    for (auto const& [key, value] : entry.fields) line[key] = value;
    using Kind = KvRecordEntry::Kind;
    switch (entry.kind) {
        case Kind::life:
            break;
        case Kind::payload: {
            json::value payload;
            if (!readJson(entry.text, {}, payload).empty()) break;
            maskPayload(payload, entry.rules);
            line["payload"] = std::move(payload);
            break;
        }
        case Kind::received:
            line["in"] = recordOfPacket(entry.text, KvPacketOrigin::server, entry.rules);
            break;
        case Kind::sent:
            line["out"] = recordOfPacket(entry.text, KvPacketOrigin::client, entry.rules);
            break;
        case Kind::receivedBytes:
        case Kind::sentBytes: {
            json::object packet{{"type", "binary"}, {"bytes", entry.size}};
            auto const* const bytes = reinterpret_cast<std::uint8_t const*>(entry.text.data());
            if (withContents) packet["base64"] = net::base64({bytes, entry.text.size()});
            line[entry.kind == Kind::sentBytes ? "out" : "in"] = std::move(packet);
            break;
        }
    }
    return jsonText(line) + '\n';
}

// Whoever records to a file finds here who does already.
struct Files {
    std::mutex mutex;
    std::map<std::string, std::weak_ptr<KvRecordFile>> byPath;
};
Files& files() {
    static auto* const all = new Files;  // it outlives what is written at the exit
    return *all;
}

}  // namespace

std::shared_ptr<KvRecordFile> KvRecordFile::open(KvPimRecording const& recording, std::string const& appId,
                                                 std::string& problem) {
    auto const refuse = [&](std::string why) {
        problem = "recordTo: " + std::move(why);
        return nullptr;
    };
    if (recording.maxBytes < kLeastBytes) return refuse("maxBytes must be 64 KiB at least");
    std::error_code error;
    auto const absolute = std::filesystem::absolute(recording.file, error);
    auto const directory = std::filesystem::canonical(absolute.parent_path(), error);
    if (error) return refuse("cannot write " + recording.file + ": " + error.message());
    auto path = (directory / absolute.filename()).string();

    auto& all = files();
    std::lock_guard const lock(all.mutex);
    std::erase_if(all.byPath, [](auto const& known) { return known.second.expired(); });
    if (auto const known = all.byPath.find(path); known != all.byPath.end()) {
        if (auto const file = known->second.lock()) {
            bool const isAlike = file->recording_.withContents == recording.withContents &&
                                 file->recording_.maxBytes == recording.maxBytes;
            if (!isAlike) return refuse("another client records to " + recording.file + ", with other options");
            return file;
        }
    }
    auto const file = std::shared_ptr<KvRecordFile>(new KvRecordFile(recording, path, appId));
    if (auto const why = file->start(); !why.empty()) return refuse(why);
    all.byPath.insert_or_assign(std::move(path), file);
    return file;
}

KvRecordFile::KvRecordFile(KvPimRecording recording, std::string path, std::string appId)
    : recording_(std::move(recording)), path_(std::move(path)), appId_(std::move(appId)) {}

// An older record steps aside; what is none is not touched.
std::string KvRecordFile::start() {
    KvFileDescriptor now, before;
    if (auto problem = problemOfOld(path_, now); !problem.empty()) return problem;
    if (now) {
        if (auto problem = problemOfOld(path_ + ".1", before); !problem.empty()) return problem;
        if (::rename(path_.c_str(), (path_ + ".1").c_str()) != 0) return "cannot rename " + path_ + ": " + errorText();
    }
    return makeFile();
}

std::string KvRecordFile::makeFile() {
    file_ = KvFileDescriptor(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
    if (!file_) return "cannot write " + path_ + ": " + errorText();
    ::flock(file_.get(), LOCK_EX | LOCK_NB);  // so that another process leaves it alone
    ++part_;
    auto const first = header();
    if (!appendLines(file_.get(), first)) return "cannot write " + path_ + ": " + errorText();
    size_ = first.size();
    return "";
}

std::string KvRecordFile::header() const {
    json::object const header{{"format", "kvpim-record"},
                              {"version", kVersion},
                              {"library", KvPimVersionString},
                              {"started", utc(beganAt_)},
                              {"appId", appId_.substr(0, kMostAppId)},
                              {"contents", recording_.withContents ? "kept" : "masked"},
                              {"part", part_}};
    return jsonText(header) + '\n';
}

std::chrono::microseconds KvRecordFile::elapsed() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - began_);
}

void KvRecordFile::add(KvRecordEntry entry) {
    {
        std::lock_guard const lock(mutex_);
        if (isOver_) return;
        auto const size = entry.bytes();
        if (bytes_ + size > kMostWaiting) {
            ++lost_;
            return;
        }
        if (lost_ > 0) entries_.push_back({.time = entry.time, .fields = {{"lost", std::exchange(lost_, 0)}}});
        bytes_ += size;
        entries_.push_back(std::move(entry));
        if (std::exchange(isAtWork_, true)) return;
    }
    queue_.async([self = shared_from_this()] { self->writeAllEntries(); });
}

void KvRecordFile::writeAllEntries() {
    for (;;) {
        std::vector<KvRecordEntry> entries;
        std::size_t bytes = 0;
        {
            std::lock_guard const lock(mutex_);
            if (entries_.empty() && lost_ > 0)
                entries_.push_back({.time = elapsed(), .fields = {{"lost", std::exchange(lost_, 0)}}});
            isAtWork_ = !entries_.empty();
            if (!isAtWork_) return;
            entries.swap(entries_);
            bytes = bytes_;
        }
        for (auto const& entry : entries) writeLine(lineOf(entry, recording_.withContents));
        writeOut();
        std::lock_guard const lock(mutex_);
        bytes_ -= bytes;
    }
}

void KvRecordFile::writeLine(std::string const& line) {
    auto const most = recording_.maxBytes / 2;
    if (size_ + line.size() > most && line.size() < most) rotate();
    if (!file_) return;
    if (size_ + line.size() > most)
        return writeLine("{\"t\":" + jsonText(json::value(seconds(elapsed()))) + ",\"lost\":1}\n");
    unwritten_ += line;
    size_ += line.size();
    if (unwritten_.size() >= kMostUnwritten) writeOut();
}

void KvRecordFile::writeOut() {
    if (file_ && !appendLines(file_.get(), unwritten_)) giveUp("cannot write " + path_ + ": " + errorText());
    unwritten_.clear();
}

void KvRecordFile::rotate() {
    writeOut();
    if (!file_) return;
    if (::rename(path_.c_str(), (path_ + ".1").c_str()) != 0 && errno != ENOENT)
        return giveUp("cannot rename " + path_ + ": " + errorText());
    if (auto const problem = makeFile(); !problem.empty()) giveUp(problem);
}

void KvRecordFile::giveUp(std::string const& why) {
    file_ = KvFileDescriptor();
    KvLog::shared().error("recording has ended: %@", why);
    std::lock_guard const lock(mutex_);
    isOver_ = true;
}

}  // namespace kv
