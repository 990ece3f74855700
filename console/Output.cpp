#include "console/Output.h"

#include <cstdio>
#include <string>

namespace kv::console {

void Output::line(boost::json::object const& object) { print(boost::json::serialize(object)); }

void Output::print(std::string_view text) {
    if (closed_) return;
    std::string const whole = std::string(text) + '\n';
    closed_ = std::fwrite(whole.data(), 1, whole.size(), stdout) != whole.size() || std::fflush(stdout) != 0;
}

}  // namespace kv::console
