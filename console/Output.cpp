#include "console/Output.h"

#include <cstdio>
#include <string>

namespace kv::console {

void Output::line(boost::json::object const& object) {
    if (closed_) return;
    // Through stdio, since the library prints through it too: the two stay in order.
    std::string const text = boost::json::serialize(object) + '\n';
    closed_ = std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0;
}

}  // namespace kv::console
