# The command-line host's commands, run from the output folder.
add_test(NAME host_commands_test COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tools/host_commands_test.sh
         WORKING_DIRECTORY ${LUM_OUTPUT_DIR})
