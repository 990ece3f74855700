// All that the library prints passes here: on its way to the application, if that has a place for it, else to standard
// output and standard error.
//
// Any thread. Nobody waits for the two: each has a writer in the background, which keeps the order of its lines. When
// nobody reads, what comes on top of a mebibyte is lost, and the stream says how many lines that were. What was printed
// before a normal end of the process still appears, if that takes no longer than a second.
#pragma once

#include "Platform/KvConsoleStream.h"

#include <chrono>
#include <functional>
#include <string_view>

namespace kv {

using KvConsole = std::function<void(KvConsoleStream stream, std::string_view line)>;

/// Prints one line, which is given without its end.
void printLine(KvConsoleStream stream, std::string_view line);
/// Has lines handed to `console` from now on, by the thread that prints; empty for nobody.
void setConsole(KvConsole console);
/// What happens to lines until `setConsole` is called.
void writeToStandardStream(KvConsoleStream stream, std::string_view line);
/// Waits until what was printed before is written. False when it takes longer than `limit`.
bool drainConsole(std::chrono::milliseconds limit);
/// Has the end of the process wait for the writers, behind whatever asks for its own turn there later.
void writeConsoleAtExit();

}  // namespace kv
