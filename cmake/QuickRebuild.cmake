# For builds that change one source again and again (scripts/mutate), given as CMAKE_PROJECT_dunmallow_INCLUDE: nothing
# is optimised or warned of, the library headers that most sources include are compiled once, the quickest linker links.
set(CMAKE_BUILD_TYPE Debug)
set(CMAKE_CXX_FLAGS "-O0 -w")
set(CMAKE_CXX_FLAGS_DEBUG "")
find_program(quick_linker ld.lld)
if(quick_linker)
  add_link_options(-fuse-ld=lld)
endif()
set(DUNMALLOW_PRECOMPILE ON)
