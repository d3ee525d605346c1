# What `cmake --install` lays out, in three components: dunmallow (the program), libdunmallow-dev (static libraries,
# headers, files for CMake and pkg-config, the protocol) and corvane-sim (the simulated server). Files that name a path
# give it relative to themselves: the tree can be moved. Nothing here touches a project that takes us in with
# add_subdirectory.
set(_dunmallow_templates "${CMAKE_CURRENT_LIST_DIR}")
if(DUNMALLOW_INSTALL)
  include(GNUInstallDirs)
  include(CMakePackageConfigHelpers)
  set(_dunmallow_cmake_folder "${CMAKE_INSTALL_LIBDIR}/cmake/dunmallow")
endif()

# dunmallow_install(COMPONENT FILES|PROGRAMS|DIRECTORY files... DESTINATION folder ...): as install() has it.
function(dunmallow_install component)
  if(DUNMALLOW_INSTALL)
    install(${ARGN} COMPONENT ${component})
  endif()
endfunction()

# dunmallow_install_pages(COMPONENT PAGES...): man pages of docs/man.
function(dunmallow_install_pages component)
  foreach(page IN LISTS ARGN)
    cmake_path(GET page EXTENSION LAST_ONLY section)
    string(REPLACE "." "man" section "${section}")
    dunmallow_install(${component}
      FILES "${PROJECT_SOURCE_DIR}/docs/man/${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/${section}")
  endforeach()
endfunction()

# dunmallow_installed_path(VARIABLE FROM TO): the way from one folder of the installation to another.
function(dunmallow_installed_path variable from to)
  foreach(folder IN ITEMS from to)
    cmake_path(ABSOLUTE_PATH ${folder} BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
  endforeach()
  cmake_path(RELATIVE_PATH to BASE_DIRECTORY "${from}")
  set(${variable} "${to}" PARENT_SCOPE)
endfunction()

# dunmallow_file_name(VARIABLE LIBRARY): its name as a file, without lib: dunmallow-toolsmisc, dunmallow-app.
function(dunmallow_file_name variable library)
  string(REGEX REPLACE "^dunmallow_" "" name "${library}")
  set(${variable} "dunmallow-${name}" PARENT_SCOPE)
endfunction()

# dunmallow_install_library(NAME DESCRIPTION LINKS...): library, headers and the file for pkg-config.
function(dunmallow_install_library name description)
  dunmallow_file_name(file ${name})
  set_target_properties(${name} PROPERTIES OUTPUT_NAME "${file}")
  if(NOT DUNMALLOW_INSTALL)
    return()
  endif()
  install(TARGETS ${name} EXPORT dunmallow
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libdunmallow-dev
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/dunmallow" COMPONENT libdunmallow-dev)
  set(required "")
  foreach(library IN LISTS ARGN)
    dunmallow_file_name(library ${library})
    list(APPEND required "${library}")
  endforeach()
  list(JOIN required ", " required)
  set(folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
  dunmallow_installed_path(prefix "${folder}" "${CMAKE_INSTALL_PREFIX}")
  dunmallow_installed_path(libdir "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_LIBDIR}")
  dunmallow_installed_path(includedir "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_INCLUDEDIR}/dunmallow")
  configure_file("${_dunmallow_templates}/library.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/${file}.pc" @ONLY)
  dunmallow_install(libdunmallow-dev FILES "${CMAKE_CURRENT_BINARY_DIR}/${file}.pc" DESTINATION "${folder}")
endfunction()

# dunmallow_install_package(): the files of find_package(dunmallow), when all libraries are known.
function(dunmallow_install_package)
  if(NOT DUNMALLOW_INSTALL)
    return()
  endif()
  set(config "${PROJECT_BINARY_DIR}/package/dunmallowConfig.cmake")
  set(version "${PROJECT_BINARY_DIR}/package/dunmallowConfigVersion.cmake")
  set_target_properties(dunmallow_options PROPERTIES EXPORT_NAME options)
  install(TARGETS dunmallow_options EXPORT dunmallow)
  install(EXPORT dunmallow NAMESPACE dunmallow:: FILE dunmallowTargets.cmake DESTINATION "${_dunmallow_cmake_folder}"
    COMPONENT libdunmallow-dev)
  configure_package_config_file("${_dunmallow_templates}/dunmallowConfig.cmake.in" "${config}"
    INSTALL_DESTINATION "${_dunmallow_cmake_folder}" NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file("${version}" COMPATIBILITY SameMajorVersion)
  dunmallow_install(libdunmallow-dev FILES "${config}" "${version}" DESTINATION "${_dunmallow_cmake_folder}")
  dunmallow_install(libdunmallow-dev FILES docs/libraries.md docs/protocol.md
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/libdunmallow-dev")
  dunmallow_install(libdunmallow-dev FILES packaging/wireshark/dunmallow.lua
    DESTINATION "${CMAKE_INSTALL_DATADIR}/dunmallow/wireshark")
endfunction()
