# What makes a Windows DLL of the library: its name, and the version that the Explorer shows.

function(tarsio_finish_dll target)
  set_target_properties(${target} PROPERTIES PREFIX "")
  enable_language(RC)
  set(resource "${PROJECT_BINARY_DIR}/version.rc")
  configure_file(src/platform/windows/version.rc.in "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
  # The same sources give the same bytes: no time of the build in the header.
  target_link_options(${target} PRIVATE LINKER:--no-insert-timestamp)
endfunction()
