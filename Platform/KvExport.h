#pragma once

#if __cplusplus <= 201703L
#error "Kv PIM takes C++20: compile with -std=c++20, or with CMAKE_CXX_STANDARD 20 in CMake."
#include "see above"  // ends the compilation, which would say a hundred things more
#endif

// Marks what the shared libraries show; everything else stays hidden. On Windows the library is static.
#ifdef _WIN32
#define KV_EXPORT
#else
#define KV_EXPORT __attribute__((visibility("default")))
#endif
