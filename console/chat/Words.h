// The error codes of the operations, each with a code set of its own, as words.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kv::console {

struct Word {
    std::int64_t code;
    std::string_view text;
};

using Words = std::span<Word const>;

extern Words const kLoginWords;
extern Words const kJoinWords;
extern Words const kLeaveWords;
extern Words const kMembersWords;
extern Words const kRoomMessageWords;
extern Words const kPeerMessageWords;
extern Words const kAttributeWords;
extern Words const kCountWords;
extern Words const kStatusWords;
extern Words const kInvitationWords;

/// What a code other than 0 says.
std::string explain(Words words, std::int64_t code);

}  // namespace kv::console
