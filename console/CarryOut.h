// What becomes of one line of the input.
#pragma once

#include "console/InputLines.h"
#include "console/Session.h"

namespace kv::console {

/// Carries the line out, or says in the output what is wrong with it.
void carryOut(Session& session, InputLines::Line const& line);

}  // namespace kv::console
