// Manual pages and shell completion, made of what `--help` says. The build asks the program itself for them.
#pragma once

#include <filesystem>

namespace CLI {
class App;
}

namespace kv::console {

/// Writes them where they belong below `share`, such as man/man1/kvpim.1. Throws std::runtime_error where it cannot.
void writeHelpPages(CLI::App const& app, std::filesystem::path const& share);

}  // namespace kv::console
