// Standard output as lines of JSON, each flushed at once.
#pragma once

#include <string_view>

#include <boost/json.hpp>

namespace kv::console {

class Output {
public:
    void line(boost::json::object const& object);
    /// A line that is none of JSON.
    void print(std::string_view text);
    /// Nobody reads any more.
    bool isClosed() const { return closed_; }

private:
    bool closed_ = false;
};

}  // namespace kv::console
