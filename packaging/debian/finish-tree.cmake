# Run by cpack between installing the components, each into a folder of its name, and packing them.
execute_process(COMMAND ${CPACK_DUNMALLOW_FINISH} "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" COMMAND_ERROR_IS_FATAL ANY)
