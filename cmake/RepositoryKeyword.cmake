# The tree that the program is built from becomes a constant of the program, and the version label follows from it.
# One generated source holds it: changing the tree compiles one file, and setting the same tree again none.
set(DUNMALLOW_REPOSITORY_PATH "trunk" CACHE STRING
  "Tree that is built: trunk, branches/NAME or tags/NAME-Ver-MAJOR_MINOR (tags/DUNMALLOW-Ver-1_00)")

set(_dunmallow_keyword_template "${CMAKE_CURRENT_LIST_DIR}/../src/AgApp/RepositoryKeyword.cpp.in")

# dunmallow_repository_keyword(PATH FILE): writes the source FILE with the keyword for PATH, or ends the configuration.
function(dunmallow_repository_keyword repositoryPath file)
  set(word "[A-Za-z0-9][A-Za-z0-9._+-]*")
  if(NOT repositoryPath MATCHES "^(trunk|(branches|tags)/${word})$")
    message(FATAL_ERROR "DUNMALLOW_REPOSITORY_PATH is '${repositoryPath}': "
      "expected trunk, branches/NAME or tags/NAME, NAME of letters, digits and . _ + - and starting with one of the first two")
  endif()
  if(repositoryPath MATCHES "^tags/" AND NOT repositoryPath MATCHES "^tags/${word}-Ver-[0-9]+_[0-9]+[a-z]?$")
    message(WARNING "The tag '${repositoryPath}' is no version (CODENAME-Ver-MAJOR_MINOR): its label will not show one")
  endif()
  configure_file("${_dunmallow_keyword_template}" "${file}" @ONLY)
endfunction()
