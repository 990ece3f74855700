#include "Platform/KvDirectories.h"

#include "Platform/KvFiles.h"
#include "Platform/KvSystem.h"

namespace kv {

std::string cachesDirectoryOf(std::string_view program) {
    return cachesDirectory() + "/kvpim/" + (program.empty() ? "unnamed" : asFileName(program));
}

std::string executableName() {
    auto const path = pathOfProgram();
    std::string name = path.substr(path.rfind('/') + 1);
    // The mark of a program that was replaced while it runs.
    if (std::string_view const mark = " (deleted)"; name.ends_with(mark)) name.resize(name.size() - mark.size());
    return name;
}

}  // namespace kv
