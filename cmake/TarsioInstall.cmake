# What `cmake --install` installs. The installed tree is relocatable. The shared and the static library
# may be installed into the same tree.
#
# Components: runtime, development, digest, documents, debug.

include(CMakePackageConfigHelpers)
include(TarsioBillOfMaterials)

# Installs the examples, and the manual if `./dev docs` has built it.
function(tarsio_install_manual folder component)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples" DESTINATION "${folder}" COMPONENT ${component}
    FILES_MATCHING PATTERN *.cpp PATTERN *.h PATTERN expected EXCLUDE)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/build/docs/html" DESTINATION "${folder}"
    COMPONENT ${component} OPTIONAL)
endfunction()

# Sets `library_result` to the installed library's path below the prefix, and `debug_result` to the file
# in the build folder that holds a shared library's debug information.
function(tarsio_install library_result debug_result)
  # A separate folder, since other packages may have one named "common".
  set(include_folder "${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}")
  set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME}")
  set(generated "${PROJECT_BINARY_DIR}/install")
  if(BUILD_SHARED_LIBS)
    set(kind shared)
  else()
    set(kind static)
  endif()

  target_include_directories(tarsio-common INTERFACE "$<INSTALL_INTERFACE:${include_folder}>")
  install(DIRECTORY include/common DESTINATION "${include_folder}"
    COMPONENT development FILES_MATCHING PATTERN *.h)
  install(TARGETS tarsio-common EXPORT tarsio-common
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
      COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)

  if(WIN32 AND NOT BUILD_SHARED_LIBS)
    install(FILES "${PROJECT_BINARY_DIR}/libshell32-ordinals.a" "${OPENSSL_CRYPTO_LIBRARY}"
      DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
  endif()

  # The CMake package.
  install(EXPORT tarsio-common FILE ${PROJECT_NAME}-${kind}.cmake NAMESPACE tarsio::
    DESTINATION "${package_folder}" COMPONENT development)
  if(WIN32)
    tarsio_runtime_dlls(runtime_dlls)
    list(TRANSFORM runtime_dlls REPLACE "^.*/" "" OUTPUT_VARIABLE runtime_dll_names)
  endif()
  string(REGEX REPLACE "^(x86_64|AMD64)$" "x86_64|AMD64" processor "${CMAKE_SYSTEM_PROCESSOR}")
  configure_package_config_file(cmake/install/${PROJECT_NAME}-config.cmake.in
    "${generated}/${PROJECT_NAME}-config.cmake" INSTALL_DESTINATION "${package_folder}"
    PATH_VARS CMAKE_INSTALL_BINDIR NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
  write_basic_package_version_file("${generated}/${PROJECT_NAME}-config-version.cmake"
    COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)  # the package checks the target itself
  install(FILES "${generated}/${PROJECT_NAME}-config.cmake"
      "${generated}/${PROJECT_NAME}-config-version.cmake"
    DESTINATION "${package_folder}" COMPONENT development)

  # The pkg-config module, one for both kinds of library.
  file(RELATIVE_PATH prefix_from_module "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" prefix_from_module "${prefix_from_module}")
  if(WIN32)
    set(private "Libs.private: -lshell32-ordinals -lcrypto -l:libssp.a -lws2_32 -lcrypt32")
  else()
    set(private "Requires.private: libcrypto")
  endif()
  configure_file(cmake/install/${PROJECT_NAME}.pc.in "${generated}/${PROJECT_NAME}.pc" @ONLY)
  install(FILES "${generated}/${PROJECT_NAME}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

  # On Windows, the DLLs that a program needs next to it, and their licences.
  if(WIN32)
    install(PROGRAMS ${runtime_dlls} DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime)
    list(TRANSFORM runtime_dlls REPLACE "^.*/"
      "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/")
    install(CODE "
      foreach(dll IN ITEMS ${runtime_dlls})
        execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --strip-unneeded \"\${dll}\"
          COMMAND_ERROR_IS_FATAL ANY)
      endforeach()" COMPONENT runtime)
    tarsio_install_runtime_licences("${CMAKE_INSTALL_DOCDIR}/licences")
  endif()

  # Strips the debug information. A shared library's goes into a separate file, to which the library has
  # a link. A static library's is dropped, since it is of no use in a separate file.
  set(library_folder "${CMAKE_INSTALL_LIBDIR}")
  set(library_component development)
  if(BUILD_SHARED_LIBS)
    if(WIN32)
      set(library_folder "${CMAKE_INSTALL_BINDIR}")
    endif()
    set(library_component runtime)
    set(debug_file "${generated}/$<TARGET_FILE_NAME:tarsio-common>.debug")
    add_custom_command(TARGET tarsio-common POST_BUILD VERBATIM
      # Otherwise the file for Windows contains the build time.
      COMMAND "${CMAKE_COMMAND}" -E env SOURCE_DATE_EPOCH=0
              "${CMAKE_OBJCOPY}" --only-keep-debug "$<TARGET_FILE:tarsio-common>" "${debug_file}")
    install(FILES "${debug_file}" DESTINATION "${library_folder}/.debug" COMPONENT debug)
  endif()
  set(installed_library "${library_folder}/$<TARGET_FILE_NAME:tarsio-common>")
  install(CODE "
    set(library \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${installed_library}\")
    set(debug_file \"${debug_file}\")
    set(objcopy \"${CMAKE_OBJCOPY}\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/install/strip.cmake\")"
    COMPONENT ${library_component})

  if(BUILD_SHARED_LIBS AND NOT WIN32)
    tarsio_install_gdb_printers(tarsio-common)
  endif()

  if(TARGET tarsio-digest)
    install(TARGETS tarsio-digest RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT digest)
    install(CODE "
      execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND \"${CMAKE_OBJCOPY}\" --strip-all
        \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/$<TARGET_FILE_NAME:tarsio-digest>\")"
      COMPONENT digest)
    if(NOT WIN32)
      install(FILES examples/digest/tarsio-digest.1
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT digest)
      install(FILES examples/digest/tarsio-digest.bash RENAME tarsio-digest
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT digest)
    endif()
  endif()

  tarsio_install_manual("${CMAKE_INSTALL_DOCDIR}" documents)
  tarsio_install_bill_of_materials("${CMAKE_INSTALL_DOCDIR}" "${installed_library}" documents)
  set(${library_result} "${installed_library}" PARENT_SCOPE)
  set(${debug_result} "${debug_file}" PARENT_SCOPE)
endfunction()
