# What a Windows DLL needs: its name, and the version resource that Explorer shows.

function(tarsio_finish_dll target)
  set_target_properties(${target} PROPERTIES PREFIX "")
  enable_language(RC)
  set(resource "${PROJECT_BINARY_DIR}/version.rc")
  configure_file(src/platform/windows/version.rc.in "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
  # No build time in the header, for reproducible builds.
  target_link_options(${target} PRIVATE LINKER:--no-insert-timestamp)
endfunction()
