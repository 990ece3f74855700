// A record as `KvPimOptions::recordTo` writes it: its lines, in their order, whatever else is in the files.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <boost/json.hpp>

namespace kv::console {

/// What a line is about.
enum class RecordKind { header, life, received, sent, call, end, lost, unknown };

struct RecordLine {
    RecordKind kind = RecordKind::unknown;
    double time = 0;  // seconds since the record began
    std::uint64_t client = 0, connection = 0;
    boost::json::object fields;

    // A field of the line; empty, or 0, when it is not there or of another type.
    std::string_view text(std::string_view name) const;
    std::uint64_t number(std::string_view name) const;
    /// The packet that was received or sent; null for other lines.
    boost::json::object const* packet() const;
};

/// The same of any object.
std::string_view textOf(boost::json::object const& object, std::string_view name);
std::uint64_t numberOf(boost::json::object const& object, std::string_view name);
std::int64_t signedOf(boost::json::object const& object, std::string_view name);

/// Reads FILE.1 and then FILE, whichever are there. What cannot be read is told by file and line, and passed over; a
/// last line that was not written to its end is passed over without a word. False when there is no file.
bool readRecord(std::string const& file, std::function<void(RecordLine const& line)> const& onLine,
                std::function<void(std::string const& problem)> const& onProblem);

}  // namespace kv::console
