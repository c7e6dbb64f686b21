# Strips the installed `library`. A shared library gets a link to `debug_file`, which contains its debug
# information.

function(run_objcopy)
  execute_process(COMMAND "${objcopy}" ${ARGN} "${library}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

if(NOT debug_file)
  run_objcopy(--strip-debug --enable-deterministic-archives)
  return()
endif()
# Only once: an unchanged library is not installed again.
file(STRINGS "${library}" link REGEX "\\.gnu_debuglink" LIMIT_COUNT 1)
if(NOT link)
  run_objcopy(--strip-unneeded "--add-gnu-debuglink=${debug_file}")
endif()
