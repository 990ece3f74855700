// The version of the library's headers, for `#if`. What is linked tells its own: KvPimVersionString.
#pragma once

#define KVPIM_VERSION_MAJOR 1
#define KVPIM_VERSION_MINOR 0
#define KVPIM_VERSION_PATCH 0

/// Whether these headers are of this version, or of a later one: `#if KVPIM_VERSION_AT_LEAST(1, 1, 0)`.
#define KVPIM_VERSION_AT_LEAST(major, minor, patch) \
    (KVPIM_VERSION_MAJOR > (major) ||               \
     (KVPIM_VERSION_MAJOR == (major) &&             \
      (KVPIM_VERSION_MINOR > (minor) || (KVPIM_VERSION_MINOR == (minor) && KVPIM_VERSION_PATCH >= (patch)))))
