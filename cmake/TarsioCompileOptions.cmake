# Warnings and sanitizers, for the library and for everything that is built beside it.

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
