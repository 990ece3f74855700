// Who is reached without the proxy.
#pragma once

#include "Net/Url.h"

#include <string>
#include <string_view>

namespace kv::net {

/// Whether a list of those who are reached directly names this server.
bool isDirect(Url const& server, std::string_view noProxy);

/// Whether an entry of such a list can name anybody at all.
bool namesSomebody(std::string_view entry);

/// Takes the first entry off the list; empty once there is none.
std::string takeEntry(std::string_view& noProxy);

}  // namespace kv::net
