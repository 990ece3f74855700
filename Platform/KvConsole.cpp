#include "Platform/KvConsole.h"

#include <cstdio>
#include <string>

namespace kv {

void printConsole(std::string_view line) {
    std::string text;
    text.reserve(line.size() + 1);
    text.append(line).push_back('\n');
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace kv
