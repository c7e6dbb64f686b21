# Runs a program many times, one after the other: each run has to print "MODE: END" as its last
# line, and to end with exit code 0 in time.
#
#     cmake -DCOMMAND=LIST -DMODE=NAME -DRUNS=NUMBER -DEND=TEXT -P run_children.cmake
#
# The command is given the mode and the number of the run. Any failure is followed by the other
# runs, so that the rate is known, but for a run that hangs.

# Not through a pipe: a background process that the emulator starts could keep that open.
set(output_file "${CMAKE_CURRENT_BINARY_DIR}/${MODE}.output")
set(failures 0)
foreach(run RANGE 1 ${RUNS})
  execute_process(COMMAND ${COMMAND} ${MODE} ${run} TIMEOUT 40 RESULT_VARIABLE result
    OUTPUT_FILE "${output_file}" ERROR_FILE "${output_file}")
  file(READ "${output_file}" output)
  # Wine's own words for a thread that begins while its process ends.
  string(REGEX REPLACE "wine client error:[^\n]*" "" output "${output}")
  # The emulator's, when Wine has not come up.
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
