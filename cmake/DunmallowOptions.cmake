# Two interface targets: what every user of the libraries needs, and what our own sources are compiled with.
# Sanitizers are set for the whole build, so that GoogleTest is instrumented like our own code.
find_package(Threads REQUIRED)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_library(dunmallow_options INTERFACE)
target_compile_features(dunmallow_options INTERFACE cxx_std_20)
target_include_directories(dunmallow_options INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>")
target_link_libraries(dunmallow_options INTERFACE Threads::Threads)
# 64-bit file sizes and times also where `long` has 32 bits.
target_compile_definitions(dunmallow_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
# Immediate binding also spares the small thread stacks the lazy binder's register area.
target_link_options(dunmallow_options INTERFACE -Wl,-z,relro,-z,now)

# Never handed on: how strict the compiler is with somebody else's sources is their own choice. In somebody else's build
# a warning of a compiler that we have not met ends nothing.
add_library(dunmallow_own_code INTERFACE)
target_compile_options(dunmallow_own_code INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${DUNMALLOW_WARNINGS_AS_ERRORS}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>
  -fstack-protector-strong -fstack-clash-protection
  # No folder of the building machine is in what is built, so two builds in two folders are equal.
  "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}=." "-fdebug-prefix-map=${PROJECT_SOURCE_DIR}=."
  "-fmacro-prefix-map=${PROJECT_BINARY_DIR}=." "-fdebug-prefix-map=${PROJECT_BINARY_DIR}=.")
# The build id would differ with the debugging information, which a finished program has none of.
target_link_options(dunmallow_own_code INTERFACE -Wl,--build-id=none)

# What fuzzers and the coverage run watch: our own libraries and programs, and for coverage the tests, too, which are
# the only users of some functions that stand in headers.
add_library(dunmallow_watched INTERFACE)
if(DUNMALLOW_FUZZ)
  target_compile_options(dunmallow_watched INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(dunmallow_watched INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(DUNMALLOW_COVERAGE)
  target_compile_options(dunmallow_watched INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(dunmallow_watched INTERFACE --coverage)
endif()

if(DUNMALLOW_SANITIZE)
  add_compile_options(-fsanitize=${DUNMALLOW_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${DUNMALLOW_SANITIZE})
  if(DUNMALLOW_SANITIZE MATCHES "undefined")
    add_compile_options(-fsanitize=float-cast-overflow -fno-sanitize-recover=float-cast-overflow)
    add_link_options(-fsanitize=float-cast-overflow)
  endif()
else()
  target_compile_definitions(dunmallow_own_code INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()

# dunmallow_precompile(TARGET GROUP HEADERS...): the headers are compiled for the group's first target, and the others
# take them from it: all of a group have the same compile options.
function(dunmallow_precompile target group)
  get_property(owner GLOBAL PROPERTY dunmallow_precompiled_${group})
  if(owner)
    target_precompile_headers(${target} REUSE_FROM ${owner})
  else()
    target_precompile_headers(${target} PRIVATE ${ARGN})
    set_property(GLOBAL PROPERTY dunmallow_precompiled_${group} ${target})
  endif()
endfunction()

# dunmallow_own_library(TARGET): what our own libraries have in common.
function(dunmallow_own_library target)
  target_link_libraries(${target} PUBLIC dunmallow_options
    PRIVATE $<BUILD_INTERFACE:dunmallow_own_code> $<BUILD_INTERFACE:dunmallow_watched>)
  if(DUNMALLOW_PRECOMPILE)
    dunmallow_precompile(${target} libraries <algorithm> <array> <atomic> <chrono> <cstdio> <filesystem> <functional>
      <iostream> <memory> <optional> <string> <string_view> <thread> <vector>)
  endif()
endfunction()

# dunmallow_add_library(NAME DESCRIPTION text SOURCES ... HEADERS ... LINKS ...): one library per folder, its headers a
# file set.
function(dunmallow_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESCRIPTION" "SOURCES;HEADERS;LINKS")
  add_library(${name} STATIC ${arg_SOURCES})
  add_library(dunmallow::${name} ALIAS ${name})
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/src" FILES ${arg_HEADERS})
  target_link_libraries(${name} PUBLIC ${arg_LINKS})
  dunmallow_own_library(${name})
  dunmallow_install_library(${name} "${arg_DESCRIPTION}" ${arg_LINKS})
endfunction()

# dunmallow_quick_compile(TARGET): for tests and their helpers, which are compiled more often than they run: no
# optimising, the common headers once (-fPIE: the helpers are parts of programs alone), and with DUNMALLOW_TEST_BATCH
# several sources at a time, so that templates they share are made once.
function(dunmallow_quick_compile target)
  target_compile_options(${target} PRIVATE -fPIE -O0 -g1 -U_FORTIFY_SOURCE)
  if(DUNMALLOW_COVERAGE)
    target_link_libraries(${target} PRIVATE dunmallow_watched)
  endif()
  dunmallow_precompile(${target} tests <gmock/gmock.h> <gtest/gtest.h> <algorithm> <array> <atomic> <chrono>
    <filesystem> <functional> <iostream> <memory> <optional> <random> <string> <thread> <vector>)
  if(DUNMALLOW_TEST_BATCH)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${DUNMALLOW_TEST_BATCH})
  endif()
endfunction()

# dunmallow_add_test(NAME SOURCES ... LINKS ...): one GoogleTest program, run as one CTest test in shuffled order.
# NOT_EMULATED names the tests (a GoogleTest filter) that user-mode emulation of a cross-build cannot run.
function(dunmallow_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT;NOT_EMULATED" "SOURCES;LINKS;LABELS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE dunmallow_options dunmallow_own_code ${arg_LINKS} GTest::gmock_main)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  dunmallow_quick_compile(${name})
  set(filter "*")
  if(CMAKE_CROSSCOMPILING AND arg_NOT_EMULATED)
    set(filter "*-${arg_NOT_EMULATED}")
  endif()
  add_test(NAME ${name}
    COMMAND ${name} "--gtest_filter=${filter}" --gtest_shuffle --gtest_brief=1 "--gtest_output=xml:${CMAKE_BINARY_DIR}/results/${name}.xml")
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "unit;${arg_LABELS}")
endfunction()
