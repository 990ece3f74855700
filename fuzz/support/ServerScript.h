// The server of a client that runs in a fuzzer, as lines of an input tell it to behave:
//
//     A[...]   answers the latest command          B[...]  answers it, with an attachment to come
//     L        opens a session and logs in         DTEXT   an answer to the discovery; nothing for a good one
//     #        hangs up                            +N      N milliseconds pass
//     else     a message, as ServerFrames.h has them
#pragma once

#include "Platform/KvMainQueue.h"
#include "fuzz/support/Application.h"

#include <string_view>

namespace kv::fuzz {

/// Does what the line says on the present connection, and lets the client at work.
void playServer(std::string_view line, KvMainQueue& queue);

/// The same for the lines that are not the server's:
///     >xTEXT   the application begins operation "x" (see Application.cpp)
///     @xy,z    it begins "x" and "y" in its next callback, "z" in the one after that
void play(std::string_view line, Application& app);

}  // namespace kv::fuzz
