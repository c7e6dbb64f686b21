# Warnings and sanitizers, for the library and for everything that is built beside it; and what makes
# a mistake in a finished program harder to exploit.

function(tarsio_compile_options target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4)
    return()
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(TARSIO_SANITIZE)
    list(JOIN TARSIO_SANITIZE "," sanitizers)
    target_compile_options(${target} PRIVATE
      -fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${sanitizers})
  endif()
endfunction()

# For the library and for programs that are handed on. On Windows, dynamic base, high-entropy
# addresses and data that is never code are what the linker makes by itself, and the compiler probes
# large stack frames; the tests look at every finished file. A sanitizer finds these mistakes first,
# and better.
function(tarsio_harden target)
  if(MSVC OR TARSIO_SANITIZE)
    return()
  endif()
  target_compile_options(${target} PRIVATE -fstack-protector-strong)
  if(WIN32)
    # The stack protector's runtime as a part of the file: one DLL less to hand on.
    target_link_libraries(${target} PRIVATE -l:libssp.a)
    return()
  endif()
  # The checked calls of the C library exist in optimised builds only.
  target_compile_options(${target} PRIVATE -fstack-clash-protection -fcf-protection=full
    $<$<NOT:$<CONFIG:,Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
  target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endfunction()
