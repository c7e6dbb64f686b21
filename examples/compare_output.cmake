# cmake -DPROGRAM=... -DEXPECTED=... [-DEMULATOR=...] -P compare_output.cmake
# Runs a program and compares its output with a file.

execute_process(COMMAND ${EMULATOR} "${PROGRAM}"
  OUTPUT_VARIABLE output RESULT_VARIABLE status TIMEOUT 60)
string(REPLACE "\r" "" output "${output}")  # Windows ends lines with CR LF
file(READ "${EXPECTED}" expected)
if(NOT status EQUAL 0 OR NOT output STREQUAL expected)
  message(FATAL_ERROR "exit status ${status}, output:\n${output}\nexpected:\n${expected}")
endif()
