# Warnings, sanitizers and hardening.

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

# Hardens the library and the programs that are shipped. On Windows, dynamic base, high-entropy addresses
# and non-executable data are the linker's defaults, and the compiler always probes large stack frames;
# tests check the finished files. Sanitizer builds are not hardened, since they find more.
function(tarsio_harden target)
  if(MSVC OR TARSIO_SANITIZE)
    return()
  endif()
  target_compile_options(${target} PRIVATE -fstack-protector-strong)
  if(WIN32)
    # Links the stack protector's runtime statically: one DLL less to ship.
    target_link_libraries(${target} PRIVATE -l:libssp.a)
    return()
  endif()
  # The C library's checked calls need optimisation.
  target_compile_options(${target} PRIVATE -fstack-clash-protection -fcf-protection=full
    $<$<NOT:$<CONFIG:,Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
  target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endfunction()

# Compiles a source for processors with AVX2. GCC for Windows does not align the stack for 32-byte
# registers, so the assembler replaces its aligned moves.
function(tarsio_compile_for_avx2 source)
  set_source_files_properties("${source}" PROPERTIES COMPILE_OPTIONS
    "-mavx2;$<$<PLATFORM_ID:Windows>:-Wa,-muse-unaligned-vector-move>")
endfunction()
