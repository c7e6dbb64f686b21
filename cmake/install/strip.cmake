# Strips the installed `library` and the `others` beside it. A shared library names the `debug_file`
# that its debug information has gone to.

function(run_objcopy file)
  execute_process(COMMAND "${objcopy}" ${ARGN} "${prefix}/${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

if(debug_file)
  # Once only: a library that has not changed is not installed anew.
  file(STRINGS "${prefix}/${library}" link REGEX "\\.gnu_debuglink" LIMIT_COUNT 1)
  if(NOT link)
    run_objcopy("${library}" --strip-unneeded "--add-gnu-debuglink=${debug_file}")
  endif()
else()
  run_objcopy("${library}" --strip-debug --enable-deterministic-archives)
endif()
foreach(other IN LISTS others)
  run_objcopy("${other}" --strip-unneeded)
endforeach()
