# What there is of the library on Windows: its core, which opens no connection and needs neither OpenSSL nor re2. The rest is
# named below; ARCHITECTURE.md, "Systems", says what it takes.
include(KvTargets)

# Debian has neither Boost nor GoogleTest for mingw-w64. Of Boost headers are enough, in a folder that has no others of the
# system's; GoogleTest comes as source.
set(boost ${PROJECT_BINARY_DIR}/boost)
file(MAKE_DIRECTORY ${boost})
file(CREATE_LINK /usr/include/boost ${boost}/boost SYMBOLIC)
file(GENERATE OUTPUT ${boost}/json.cpp CONTENT "#include <boost/json/src.hpp>\n")
add_library(kvboostjson STATIC ${boost}/json.cpp)
target_compile_features(kvboostjson PUBLIC cxx_std_20)
target_include_directories(kvboostjson SYSTEM PUBLIC ${boost})
target_compile_definitions(kvboostjson PUBLIC _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN NOMINMAX)
find_package(ZLIB REQUIRED)

# Of Net/ and SocketIO/transport what knows no socket.
file(GLOB socketio CONFIGURE_DEPENDS SocketIO/core/*.cpp)
foreach(name AckTable SocketData transport/Delivery transport/Framer transport/HeapTrim transport/TurnMemory)
  list(APPEND socketio SocketIO/${name}.cpp)
endforeach()
list(APPEND socketio Net/Failure.cpp)
# Not KvString.cpp, which needs re2 and OpenSSL, nor what needs that.
file(GLOB classes CONFIGURE_DEPENDS Classes/Model/*.cpp)
foreach(name Catagory/KvDate Catagory/KvJson Internal/KvPimLoginParams Internal/KvWireForms)
  list(APPEND classes Classes/${name}.cpp)
endforeach()
# Not the key stores.
file(GLOB platform CONFIGURE_DEPENDS Platform/*.cpp)
list(FILTER platform EXCLUDE REGEX "KeyStore|Linux|Posix|Unix")
list(APPEND platform Platform/KvQueueDescriptorPosix.cpp)  # Asio has nothing here either that others could wait for
add_library(kvcore STATIC ${socketio} ${classes} ${platform})
kv_target(kvcore)
target_compile_definitions(kvcore PUBLIC _FILE_OFFSET_BITS=64 KVPIM_VERSION="${PROJECT_VERSION}")
target_link_libraries(kvcore PUBLIC kvboostjson ZLIB::ZLIB PRIVATE ws2_32 mswsock bcrypt ole32 shell32 uuid)

if(KVPIM_BUILD_TESTS)
  enable_testing()
  include(GoogleTest)
  set(BUILD_GMOCK OFF)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set(tests platform/Windows platform/JsonText platform/MainQueue platform/WorkQueue diagnostics/SerialQueue
            socketio/AckTable socketio/ByteStore socketio/Framer socketio/Packet socketio/ProtocolCore
            socketio/WebSocketCodec classes/Helper)
  list(TRANSFORM tests REPLACE "(.+)" "tests/\\1Test.cpp")
  kv_test(kv_core_test SOURCES ${tests} LIBRARIES kvcore)
  target_compile_definitions(kv_core_test PRIVATE PROTOCOL_TRANSCRIPT="${PROJECT_SOURCE_DIR}/tests/socketio/protocol.txt")
  add_executable(replay_core fuzz/core.cpp fuzz/support/Entry.cpp fuzz/support/ReplayMain.cpp)
  kv_target(replay_core)
  target_link_libraries(replay_core PRIVATE kvcore)
  add_test(NAME Fuzz.core COMMAND replay_core ${PROJECT_SOURCE_DIR}/fuzz/corpus/core)
endif()
