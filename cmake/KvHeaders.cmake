# Public headers include each other by the project's folders, customers include them as <KvPim/...>. So each is copied, with
# its includes rewritten, to where a customer finds it: in the build, and from there in an installation.
set(KVPIM_INCLUDE ${PROJECT_BINARY_DIR}/include)

# kv_public_headers(TARGET FOLDER HEADER...): headers of the current folder, as <KvPim/FOLDER/HEADER>.
function(kv_public_headers target folder)
  cmake_path(APPEND root KvPim ${folder})
  foreach(header ${ARGN})
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/${header})
    set(public ${KVPIM_INCLUDE}/${root}/${header})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    file(READ ${source} text)
    string(REGEX REPLACE "#include \"Classes/([^\"]+)\"" "#include <KvPim/\\1>" text "${text}")
    string(REGEX REPLACE "#include \"((Net|Platform|SocketIO)/[^\"]+)\"" "#include <KvPim/\\1>" text "${text}")
    file(WRITE ${public}.new "${text}")
    file(COPY_FILE ${public}.new ${public} ONLY_IF_DIFFERENT)
    file(REMOVE ${public}.new)
    if(KVPIM_INSTALL)
      cmake_path(GET public PARENT_PATH place)
      cmake_path(RELATIVE_PATH place BASE_DIRECTORY ${PROJECT_BINARY_DIR})
      install(FILES ${public} DESTINATION ${place} COMPONENT development)
    endif()
  endforeach()
endfunction()
