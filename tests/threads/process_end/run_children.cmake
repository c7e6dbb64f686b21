# Runs a program many times, one after the other. Each run must print "MODE: END" as its last line and
# exit with code 0 within the time limit.
#
#     cmake -DCOMMAND=LIST -DMODE=NAME -DRUNS=NUMBER -DEND=TEXT -P run_children.cmake
#
# The mode and the number of the run are appended to the command. After a failure the other runs still
# take place, to show the failure rate, unless the run has timed out.

# A file, since a background process of the emulator could keep a pipe open.
set(output_file "${CMAKE_CURRENT_BINARY_DIR}/${MODE}.output")
set(failures 0)
foreach(run RANGE 1 ${RUNS})
  execute_process(COMMAND ${COMMAND} ${MODE} ${run} TIMEOUT 40 RESULT_VARIABLE result
    OUTPUT_FILE "${output_file}" ERROR_FILE "${output_file}")
  file(READ "${output_file}" output)
  # Wine's message about a thread that starts while its process exits.
  string(REGEX REPLACE "wine client error:[^\n]*" "" output "${output}")
  # The emulator's message if Wine had to be restarted.
  string(REGEX REPLACE "run_under_wine.sh: [^\n]*; restart [1-3]\n" "" output "${output}")
  string(STRIP "${output}" output)
  if(result STREQUAL "0" AND "\n${output}" MATCHES "\n${MODE}: ${END}$")
    continue()
  endif()
  math(EXPR failures "${failures} + 1")
  message("${MODE}, run ${run}: ${result}\n${output}")
  if(result MATCHES "timeout")
    break()
  endif()
endforeach()
if(failures GREATER 0)
  message(FATAL_ERROR "${failures} of ${RUNS} runs failed")
endif()
