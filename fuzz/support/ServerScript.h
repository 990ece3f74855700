// The server of a client that runs in a fuzzer, as lines of an input tell it to behave:
//
//     A[...]   answers the latest command          B[...]  answers it, with an attachment to come
//     L        opens a session and logs in         DTEXT   an answer to the discovery; nothing for a good one
//     #        hangs up                            +N      N milliseconds pass
//     else     a message, as ServerFrames.h has them
#pragma once

#include "Platform/KvMainQueue.h"

#include <string_view>

namespace kv::fuzz {

/// Does what the line says on the present connection, and lets the client at work.
void playServer(std::string_view line, KvMainQueue& queue);

}  // namespace kv::fuzz
