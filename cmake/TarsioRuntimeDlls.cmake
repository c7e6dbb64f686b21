# The DLLs that the library needs at run time, and their licences.

# Sets `result` to the paths of the C++ runtime's DLLs and, with TARSIO_SHARED_CRYPTO, of libcrypto's.
function(tarsio_runtime_dlls result)
  set(dlls "")
  foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${name}"
      OUTPUT_VARIABLE dll OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND dlls "${dll}")
  endforeach()
  set(crypto "")
  if(TARSIO_SHARED_CRYPTO)
    file(GLOB crypto "${OPENSSL_INCLUDE_DIR}/../bin/libcrypto-*.dll")
  endif()
  set(${result} ${dlls} ${crypto} PARENT_SCOPE)
endfunction()

function(tarsio_copy_runtime_dlls target)
  tarsio_runtime_dlls(dlls)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E copy_if_different ${dlls} "$<TARGET_FILE_DIR:${target}>"
    VERBATIM)
endfunction()

# Installs the licences under which they are shipped. The first file contains the exception that allows
# programs under any licence to use the compiler's runtime.
function(tarsio_install_runtime_licences folder)
  macro(install_text text name)
    install(FILES "${text}" RENAME "${name}" DESTINATION "${folder}" COMPONENT documents)
  endmacro()
  install_text(/usr/share/doc/gcc-mingw-w64-x86-64-posix-runtime/copyright gcc-runtime.txt)
  install_text(/usr/share/common-licenses/GPL-3 GPL-3.txt)
  install_text(/usr/share/doc/mingw-w64-x86-64-dev/copyright mingw-w64.txt)
  install_text("${OPENSSL_INCLUDE_DIR}/../LICENSE" openssl.txt)
endfunction()
