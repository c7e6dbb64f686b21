# Links `target` with an import library built from a module definition file, so that its functions are
# imported by ordinal instead of by name. A static library is installed together with it.

function(tarsio_import_by_ordinal target definition)
  get_filename_component(name "${definition}" NAME_WE)
  get_filename_component(definition "${definition}" ABSOLUTE)
  set(import_library "${CMAKE_CURRENT_BINARY_DIR}/lib${name}-ordinals.a")
  # Runs in the output folder because dlltool makes the argument of -l a part of symbol names.
  add_custom_command(OUTPUT "${import_library}"
    COMMAND "${CMAKE_DLLTOOL}" -d "${definition}" -l "lib${name}-ordinals.a"
    WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}"
    DEPENDS "${definition}" VERBATIM)
  add_custom_target(${target}-${name}-ordinals DEPENDS "${import_library}")
  add_dependencies(${target} ${target}-${name}-ordinals)
  target_link_libraries(${target} PRIVATE "$<BUILD_INTERFACE:${import_library}>"
    "$<INSTALL_INTERFACE:$<INSTALL_PREFIX>/${CMAKE_INSTALL_LIBDIR}/lib${name}-ordinals.a>")
endfunction()
