# What `cmake --install` puts where: libraries and tools, and what other projects need to build with them.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/KvPim)
set(build_folder ${PROJECT_BINARY_DIR}/install)

# Each library has an export of its own, so that the Socket.IO client can be found without what the rest needs.
foreach(target kvsocketio kvpim)
  get_target_property(shown ${target} EXPORT_NAME)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN)
  install(TARGETS ${target} EXPORT ${shown}
    LIBRARY COMPONENT libraries NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
  install(EXPORT ${shown} NAMESPACE KvPim:: FILE ${shown}.cmake DESTINATION ${config_folder} COMPONENT development)
endforeach()

if(KVPIM_BUILD_BINDING)
  set_target_properties(kvpim_c PROPERTIES INSTALL_RPATH $ORIGIN)
  install(TARGETS kvpim_c EXPORT c LIBRARY COMPONENT libraries NAMELINK_COMPONENT development)
  install(EXPORT c NAMESPACE KvPim:: FILE c.cmake DESTINATION ${config_folder} COMPONENT development)
  # Where Debian's Python looks; for others there is the wheel.
  install(DIRECTORY python/kvpim DESTINATION lib/python3/dist-packages COMPONENT python PATTERN __pycache__ EXCLUDE)
endif()

if(KVPIM_BUILD_TESTKIT)
  install(TARGETS kvtestkit EXPORT testkit ARCHIVE COMPONENT development)
  install(EXPORT testkit NAMESPACE KvPim:: FILE testkit.cmake DESTINATION ${config_folder} COMPONENT development)
endif()

configure_package_config_file(cmake/KvPimConfig.cmake.in ${build_folder}/KvPimConfig.cmake
  INSTALL_DESTINATION ${config_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${build_folder}/KvPimConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${build_folder}/KvPimConfig.cmake ${build_folder}/KvPimConfigVersion.cmake
  DESTINATION ${config_folder} COMPONENT development)

# A static library does not know what it needs, so whoever links it must be told.
if(NOT BUILD_SHARED_LIBS)
  set(socketio_requires "libssl libcrypto zlib")
  set(kvpim_requires "re2 libcrypto")
endif()
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(name kvpim kvsocketio kvpim_c)
  configure_file(cmake/${name}.pc.in ${build_folder}/${name}.pc @ONLY)
  install(FILES ${build_folder}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

if(KVPIM_BUILD_TOOLS)
  file(RELATIVE_PATH libraries_from_tools /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(kvpim_client PROPERTIES INSTALL_RPATH $ORIGIN/${libraries_from_tools})
  install(TARGETS kvpim_client RUNTIME COMPONENT tools)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/console/share/ DESTINATION ${CMAKE_INSTALL_DATADIR} COMPONENT tools)
endif()
