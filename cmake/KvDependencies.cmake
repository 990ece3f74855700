# What the library is built on; all of it comes from Debian's packages. A project that adds this one links it from its own
# folders, and so must see these targets there.
set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(OpenSSL 3.0 REQUIRED)
find_package(ZLIB REQUIRED)
if(KVPIM_BUILD_TESTS OR KVPIM_BUILD_EXAMPLES)
  find_package(CURL REQUIRED)  # they talk to the local service
endif()
find_package(Boost 1.81 REQUIRED COMPONENTS json)
find_package(PkgConfig REQUIRED)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET GLOBAL re2)
pkg_check_modules(LIBSECRET REQUIRED libsecret-1)
