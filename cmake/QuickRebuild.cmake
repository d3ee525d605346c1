# For builds that change one source again and again (scripts/mutate), given as CMAKE_PROJECT_dunmallow_INCLUDE: nothing
# is optimised or warned of, the library headers that most sources include are compiled once, the quickest linker links.
set(CMAKE_BUILD_TYPE Debug)
set(CMAKE_CXX_FLAGS "-O0 -w")
set(CMAKE_CXX_FLAGS_DEBUG "")
find_program(quick_linker ld.lld)
if(quick_linker)
  add_link_options(-fuse-ld=lld)
endif()
cmake_language(DEFER CALL target_precompile_headers toolsmisc PRIVATE
  <algorithm> <array> <cstdio> <functional> <iostream> <memory> <optional> <string> <string_view> <vector>)
foreach(library IN ITEMS threadfunc agapp packetsocket canflasher dunmallow_app)
  cmake_language(EVAL CODE "cmake_language(DEFER CALL target_precompile_headers ${library} REUSE_FROM toolsmisc)")
endforeach()
