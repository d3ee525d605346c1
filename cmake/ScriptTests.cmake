# The system's Python has the packages that scripts/install-packages installs; another one earlier in PATH may not.
set(DUNMALLOW_PYTHON "/usr/bin/python3" CACHE FILEPATH "Python with pytest, for the tests of scripts")

# dunmallow_add_script_test(NAME FILE [TIMEOUT s] [ARGUMENTS ...]): a file of pytest tests, run as one CTest test.
function(dunmallow_add_script_test name file)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "TIMEOUT" "ARGUMENTS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  add_test(NAME ${name}
    COMMAND "${DUNMALLOW_PYTHON}" -B -m pytest -p no:cacheprovider -q "${CMAKE_CURRENT_SOURCE_DIR}/${file}"
            "--junitxml=${CMAKE_BINARY_DIR}/results/${name}.xml" ${arg_ARGUMENTS})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "unit;script")
endfunction()

# dunmallow_page_examples(VARIABLE): the folder into which the programs of docs/libraries.md are taken, and what each
# prints; configured again when the page changes.
function(dunmallow_page_examples variable)
  set(page "${PROJECT_SOURCE_DIR}/docs/libraries.md")
  set(extract "${PROJECT_SOURCE_DIR}/tests/docs/extract-examples")
  set(examples "${CMAKE_CURRENT_BINARY_DIR}/examples")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${page}" "${extract}")
  execute_process(COMMAND "${DUNMALLOW_PYTHON}" -B "${extract}" "${page}" "${examples}" COMMAND_ERROR_IS_FATAL ANY)
  set(${variable} "${examples}" PARENT_SCOPE)
endfunction()
