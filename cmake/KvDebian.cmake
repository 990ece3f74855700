# The Debian packages that `./run package` builds from the preset of this name: one for each component that is installed.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kvpim)
set(CPACK_PACKAGE_CONTACT "The Kv PIM authors <kvpim@localhost>")
set(CPACK_PACKAGE_VENDOR "The Kv PIM authors")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
# Before the packages are installed, only the build knows what their own libraries are called.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/SocketIO ${PROJECT_BINARY_DIR}/Classes
    ${PROJECT_BINARY_DIR}/Binding)
set(same_version "libkvpim${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME libkvpim${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_RECOMMENDS libsecret-1-0)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_LIBRARIES_DESCRIPTION
    "Client library for a real-time messaging service\nChannels, peer messages, attributes, online status and invitations,\nand the Socket.IO client underneath.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkvpim-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_version}, libboost-json1.81-dev, libssl-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Client library for a real-time messaging service, for developers\nHeaders, and what CMake and pkg-config need to build with the library; and the\ntest kit, a service in the process of unit tests.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kvpim-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same_version}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Command line client for a real-time messaging service\nThe program kvpim, which chats in a terminal and serves other programs.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kvpim)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${same_version}, python3 (>= 3.11)")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "Client library for a real-time messaging service, for Python\nThe package kvpim, for asyncio and for scripts without an event loop.")

foreach(component libraries development tools python)
  string(TOUPPER ${component} name)
  install(FILES LICENSE RENAME copyright DESTINATION share/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME} COMPONENT ${component})
endforeach()
set(CPACK_COMPONENTS_ALL libraries development tools python)
include(CPack)
