# Strips the installed `library`. A shared one names the `debug_file` that its debug information has
# gone to.

function(run_objcopy)
  execute_process(COMMAND "${objcopy}" ${ARGN} "${library}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

if(NOT debug_file)
  run_objcopy(--strip-debug --enable-deterministic-archives)
  return()
endif()
# Once only: a library that has not changed is not installed anew.
file(STRINGS "${library}" link REGEX "\\.gnu_debuglink" LIMIT_COUNT 1)
if(NOT link)
  run_objcopy(--strip-unneeded "--add-gnu-debuglink=${debug_file}")
endif()
