# What `cpack` makes: a Debian package for each install component. scripts/make-packages runs it and hands over what only
# the built programs tell (CPACK_DEBIAN_PACKAGE_ARCHITECTURE, the libraries' packages).
set(_dunmallow_debian "${PROJECT_SOURCE_DIR}/packaging/debian")

# dunmallow_package(COMPONENT SECTION): its description is the file of that name, whose first line is the short one.
function(dunmallow_package component section)
  string(TOUPPER "${component}" upper)
  file(STRINGS "${_dunmallow_debian}/${component}.description" lines)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${_dunmallow_debian}/${component}.description")
  list(JOIN lines "\n" description)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME "${component}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}" PARENT_SCOPE)
endfunction()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT "dunmallow developers <developers@dunmallow.invalid>")
set(CPACK_COMPONENTS_ALL dunmallow libdunmallow-dev corvane-sim)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_THREADS 1)  # the number of threads shows in the compressed bytes
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Programs and libraries without debugging information, the pages compressed, the build date in its place.
set(CPACK_DUNMALLOW_FINISH "${_dunmallow_debian}/finish-tree" "${CMAKE_STRIP}")
set(CPACK_PRE_BUILD_SCRIPTS "${_dunmallow_debian}/finish-tree.cmake")

dunmallow_package(dunmallow electronics)
dunmallow_package(libdunmallow-dev libdevel)
dunmallow_package(corvane-sim electronics)
set(CPACK_DEBIAN_LIBDUNMALLOW-DEV_PACKAGE_SUGGESTS "cmake, g++, pkgconf")
set(CPACK_DEBIAN_CORVANE-SIM_PACKAGE_RECOMMENDS "dunmallow")

include(CPack)
