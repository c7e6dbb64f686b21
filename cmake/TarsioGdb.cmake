# Puts gdb's pretty-printers where gdb looks for them: a file named like the library, with "-gdb.py"
# appended.

function(tarsio_gdb_printers target)
  # Next to the library in the build tree. gdb loads the file if the folder is on its safe path.
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E create_symlink "${PROJECT_SOURCE_DIR}/gdb/tarsio_common.py"
            "$<TARGET_FILE:${target}>-gdb.py"
    VERBATIM)
endfunction()

# Installs them under gdb's auto-load folder, which mirrors the library's full path. The prefix is known
# only at installation.
function(tarsio_install_gdb_printers target)
  install(FILES "${PROJECT_SOURCE_DIR}/gdb/tarsio_common.py"
    RENAME "$<TARGET_FILE_NAME:${target}>-gdb.py" COMPONENT development
    DESTINATION
      "${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}")
endfunction()
