# The script that makes gdb show the library's values readably, where gdb looks for it: gdb adds
# "-gdb.py" to the library's name.

function(tarsio_gdb_printers target)
  # Next to the library in the build tree. gdb loads it from there if the folder is on its safe path.
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E create_symlink "${PROJECT_SOURCE_DIR}/gdb/tarsio_common.py"
            "$<TARGET_FILE:${target}>-gdb.py"
    VERBATIM)
endfunction()

# In a folder that gdb searches for the library's full path, which is known at the installation only.
function(tarsio_install_gdb_printers target)
  install(FILES "${PROJECT_SOURCE_DIR}/gdb/tarsio_common.py"
    RENAME "$<TARGET_FILE_NAME:${target}>-gdb.py" COMPONENT development
    DESTINATION
      "${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}")
endfunction()
