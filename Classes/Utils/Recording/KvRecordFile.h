// The file of a record: lines of JSON in a ring of two files, written in the background. Whoever adds a line never
// waits for the disk: what finds no room in memory is lost, and a line says how much. Any thread.
#pragma once

#include "Classes/Model/KvPimRecording.h"
#include "Classes/Utils/Recording/KvRecordLines.h"
#include "Platform/KvFiles.h"
#include "Platform/KvSerialQueue.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace kv {

/// A line to come. What is costly of it is made when it is written.
struct KvRecordEntry {
    enum class Kind { life, received, sent, payload, receivedBytes, sentBytes };
    Kind kind = Kind::life;
    std::chrono::microseconds time{};  // since the beginning of the record
    boost::json::object fields;        // what stands before
    std::string text{};                // a packet or a payload; bytes, where contents are wanted
    std::size_t size = 0;              // of bytes
    KvRecordRules rules{};

    /// What it occupies, about.
    std::size_t bytes() const { return sizeof *this + text.size() + 64 * fields.size(); }
};

class KvRecordFile final : public std::enable_shared_from_this<KvRecordFile> {
public:
    /// The file of this recording; the same one for all clients of the process that record there. Null, and what is
    /// wrong in a sentence, when it cannot be.
    static std::shared_ptr<KvRecordFile> open(KvPimRecording const& recording, std::string const& appId,
                                              std::string& problem);

    KvPimRecording const& recording() const { return recording_; }
    /// How long the record goes on.
    std::chrono::microseconds elapsed() const;
    std::uint64_t nextClient() { return ++clients_; }
    std::uint64_t nextConnection() { return ++connections_; }
    std::uint64_t nextCall() { return ++calls_; }
    void add(KvRecordEntry entry);

private:
    KvRecordFile(KvPimRecording recording, std::string path, std::string appId);
    std::string start();
    std::string makeFile();
    std::string header() const;
    // On the queue.
    void writeAllEntries();
    void writeLine(std::string const& line);
    void writeOut();
    void rotate();
    void giveUp(std::string const& why);

    KvPimRecording const recording_;
    std::string const path_, appId_;
    std::chrono::steady_clock::time_point const began_ = std::chrono::steady_clock::now();
    std::chrono::system_clock::time_point const beganAt_ = std::chrono::system_clock::now();
    std::atomic<std::uint64_t> clients_{0}, connections_{0}, calls_{0};

    // On the queue.
    KvFileDescriptor file_;
    std::size_t size_ = 0;  // of the file, with what waits to be written
    std::string unwritten_;
    int part_ = 0;

    std::mutex mutex_;
    // Guarded by mutex_.
    std::vector<KvRecordEntry> entries_;
    std::size_t bytes_ = 0;  // of those that are not written yet
    std::uint64_t lost_ = 0;
    bool isAtWork_ = false;
    bool isOver_ = false;

    KvSerialQueue queue_{"kvpim.record"};
};

}  // namespace kv
