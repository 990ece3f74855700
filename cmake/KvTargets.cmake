# One way to make each of the project's targets: warnings, sanitizers and include root are the same everywhere.
find_program(KVPIM_CCACHE ccache)
if(KVPIM_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # One build finds what another one compiled with the same options, in whichever folder.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
                                  ${KVPIM_CCACHE})
endif()

function(kv_target name)
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
                                           POSITION_INDEPENDENT_CODE ON)
  # At -O3 GCC 12 sees copies within one std::string overlap where two different ones are joined (its bug 105651).
  target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                         $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict>
                                         $<$<BOOL:${KVPIM_WARNINGS_AS_ERRORS}>:-Werror>)
  if(KVPIM_PORTABLE)
    target_compile_definitions(${name} PRIVATE BOOST_ASIO_DISABLE_EPOLL BOOST_ASIO_DISABLE_EVENTFD BOOST_ASIO_DISABLE_TIMERFD)
  endif()
  if(KVPIM_SANITIZE)
    target_compile_options(${name} PRIVATE -fsanitize=${KVPIM_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(${name} PUBLIC -fsanitize=${KVPIM_SANITIZE})
    if(KVPIM_SANITIZE STREQUAL "thread")
      target_compile_options(${name} PRIVATE -Wno-tsan)  # Asio's fences stand beside locks, which it does understand
    endif()
  endif()
endfunction()

# A library that others link as KvPim::<shown>, from a build as from an installation.
function(kv_library name shown)
  add_library(${name} ${ARGN})
  add_library(KvPim::${shown} ALIAS ${name})
  kv_target(${name})
  set_target_properties(${name} PROPERTIES EXPORT_NAME ${shown} VERSION ${PROJECT_VERSION}
                                           SOVERSION ${KVPIM_ABI} DEFINE_SYMBOL "")
  if(BUILD_SHARED_LIBS)
    set(exports ${PROJECT_BINARY_DIR}/exports.map)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/exports.map.in ${exports} @ONLY)
    # The library's threads run until the very end: closed with the plugin that needed it, it must stay where it is.
    target_link_options(${name} PRIVATE -Wl,--version-script=${exports} -Wl,--no-undefined -Wl,-z,nodelete)
    set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${exports})
  endif()
  target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${KVPIM_INCLUDE}> $<INSTALL_INTERFACE:include>)
endfunction()

# A test program: linked to GoogleTest, found by CTest.
function(kv_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  kv_target(${name})
  target_link_libraries(${name} PRIVATE ${TEST_LIBRARIES} GTest::gtest GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()
