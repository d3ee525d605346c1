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
