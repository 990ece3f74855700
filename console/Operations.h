// The operations that a line can ask for.
#pragma once

#include "console/Answer.h"
#include "console/Arguments.h"
#include "console/Session.h"

#include <stdexcept>
#include <string_view>
#include <vector>

namespace kv::console {

/// A line that is right as such, but is about something that the session does not have.
struct NotThere : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Operation {
    std::string_view name;
    /// Throws BadLine or NotThere before anything was done.
    void (*run)(Session& session, Arguments const& arguments, Answer const& answer);
};

/// Null when there is no operation of this name.
Operation const* findOperation(std::string_view name);
std::vector<std::string_view> operationNames();

}  // namespace kv::console
