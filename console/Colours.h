// Whether standard output is a terminal that understands escapes, and whether its user wants colours.
#pragma once

namespace kv::console {

bool obeysEscapes();
/// Not with NO_COLOR.
bool wantsColours();

}  // namespace kv::console
