# Writes the build date into finished programs. The date is SOURCE_DATE_EPOCH from the environment of the build, else now.
option(DUNMALLOW_STAMP_BUILD_DATE "Write the build date into the programs each time they are linked" OFF)

set(_dunmallow_stamp_script "${CMAKE_CURRENT_LIST_DIR}/../scripts/stamp-build-date")

# dunmallow_stamp(TARGET): stamps the program after each link when DUNMALLOW_STAMP_BUILD_DATE is set. The target
# stamp-TARGET does so on request, whatever the option says.
function(dunmallow_stamp target)
  if(DUNMALLOW_STAMP_BUILD_DATE)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND "${_dunmallow_stamp_script}" "$<TARGET_FILE:${target}>" VERBATIM)
  endif()
  add_custom_target(stamp-${target}
    COMMAND "${_dunmallow_stamp_script}" "$<TARGET_FILE:${target}>"
    COMMENT "Stamping the build date into ${target}" VERBATIM)
  add_dependencies(stamp-${target} ${target})
endfunction()
