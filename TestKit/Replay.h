// Plays the server's side of a record (`KvPimOptions::recordTo`) against a fresh client, so that what was seen once can
// be seen again: a bug report becomes a test.
//
//     auto const replay = kv::test::replay("reports/lost_channel.record");
//     EXPECT_TRUE(replay.differences.empty());
//
// Time is that of the record, on a clock that stands still otherwise: an hour takes a moment. The application's calls
// are made as they were made, with masked texts where the record has them; what the server sent is sent at its time,
// and each answer not before its question.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kv::test {

/// What came of a replay.
struct Replay {
    /// What the client did: a line each, with the time.
    std::vector<std::string> story;
    /// What it did otherwise than the client that was recorded: requests that only one of the two made, and completions
    /// with other codes.
    std::vector<std::string> differences;
};

/// Plays the record in this file, and in the one with ".1" behind its name, to a client. Throws std::invalid_argument
/// when there is no record, or its beginning is missing.
/// @param client  whose record it is, where several wrote to the file.
Replay replay(std::string const& file, std::uint64_t client = 1);

}  // namespace kv::test
