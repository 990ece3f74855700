// The version of the library's headers, for `#if`. What is linked tells its own: KvPimVersionString.
#pragma once

#define KVPIM_VERSION_MAJOR 1
#define KVPIM_VERSION_MINOR 0
#define KVPIM_VERSION_PATCH 0
