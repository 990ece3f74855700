// Whether a text is the base address of a server: scheme http or https, host, optional port, nothing behind it. Letter
// case does not matter. Of a text of several lines one that is an address suffices, so whoever uses an accepted text
// must be ready for line breaks in it.
#pragma once

#include "Platform/KvExport.h"

#include <string>
#include <string_view>

namespace kv {

/// An address whose host is a dotted IPv4 address.
KV_EXPORT bool isValidServerIP(std::string_view address);
/// An address whose host is a domain name of two labels at least, the last of letters alone.
KV_EXPORT bool isValidServerDomain(std::string_view address);
/// Either.
KV_EXPORT bool isValidApiServer(std::string_view address);
/// Which rule an address breaks, and what would pass, for people; empty for a valid one. It may repeat the address, but
/// no user and password in it.
std::string problemOfApiServer(std::string_view address);

}  // namespace kv
