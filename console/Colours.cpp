#include "console/Colours.h"

#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace kv::console {

// NOLINTBEGIN(concurrency-mt-unsafe): nobody sets variables
bool obeysEscapes() {
    char const* const type = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) == 1 && type != nullptr && std::string_view(type) != "dumb";
}

bool wantsColours() { return obeysEscapes() && std::getenv("NO_COLOR") == nullptr; }
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace kv::console
