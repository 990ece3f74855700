// What operations, events, options and codes there are, as JSON.
#pragma once

#include <string>

namespace kv::binding {

/// The same text at each call.
std::string const& interfaceText();

}  // namespace kv::binding
