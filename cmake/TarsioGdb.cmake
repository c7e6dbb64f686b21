# The script that makes gdb show the library's values readably, where gdb looks for it: gdb adds
# "-gdb.py" to the library's name.

set(printers "${PROJECT_SOURCE_DIR}/tools/gdb/tarsio_common.py")

function(tarsio_gdb_printers target)
  # Beside the library in the build tree. gdb loads it from there if told that the folder is safe.
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}" -E create_symlink "${printers}"
            "$<TARGET_FILE:${target}>-gdb.py"
    VERBATIM)
endfunction()

# In a folder that gdb searches for the library's full path, which is known at the installation only.
function(tarsio_install_gdb_printers target)
  install(FILES "${printers}" RENAME "$<TARGET_FILE_NAME:${target}>-gdb.py" COMPONENT development
    DESTINATION
      "${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}")
endfunction()
