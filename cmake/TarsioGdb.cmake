# tarsio_gdb_printers(target): what makes gdb show the library's values readably, where gdb looks for
# it: under the library's full path and name, with "-gdb.py" behind.

function(tarsio_gdb_printers target)
  set(printers "${PROJECT_SOURCE_DIR}/tools/gdb/tarsio_common.py")
  set(printers_name "$<TARGET_FILE_NAME:${target}>-gdb.py")
  # Beside the library in the build tree. gdb loads it from there if told that the folder is safe.
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E create_symlink "${printers}"
            "$<TARGET_FILE_DIR:${target}>/${printers_name}"
    VERBATIM)
  install(FILES "${printers}" RENAME "${printers_name}" COMPONENT development
    DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}")
endfunction()
