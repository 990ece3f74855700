// The calls of an application, made again from what a record has of them.
#pragma once

#include "Classes/KvPimKit.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

namespace kv::test {

class ReplayedCalls {
public:
    explicit ReplayedCalls(std::shared_ptr<KvPimKit> kit) : kit_(std::move(kit)) {}

    /// Calls the method again, as this line of the record has it. False when it cannot be: what was refused before it
    /// was sent has no arguments there.
    bool make(boost::json::object const& line, std::function<void(std::int64_t)> done);

private:
    friend struct Methods;
    std::shared_ptr<KvPimChannel> channel(std::string const& id);

    std::shared_ptr<KvPimKit> const kit_;
    std::map<std::string, std::shared_ptr<KvPimChannel>, std::less<>> channels_;
};

}  // namespace kv::test
