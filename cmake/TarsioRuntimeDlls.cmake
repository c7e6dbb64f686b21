# The DLLs that the library needs at run time, and their place beside it.

# Sets `result` to the paths of the C++ runtime's DLLs and libcrypto's.
function(tarsio_runtime_dlls result)
  set(dlls "")
  foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${name}"
      OUTPUT_VARIABLE dll OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND dlls "${dll}")
  endforeach()
  file(GLOB crypto "${OPENSSL_INCLUDE_DIR}/../bin/libcrypto-*.dll")
  set(${result} ${dlls} ${crypto} PARENT_SCOPE)
endfunction()

function(tarsio_copy_runtime_dlls target)
  tarsio_runtime_dlls(dlls)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E copy_if_different ${dlls} "$<TARGET_FILE_DIR:${target}>"
    VERBATIM)
endfunction()
