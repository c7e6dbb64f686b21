# What `cmake --install` lays down. No file of it names a folder of the machine: the tree works from
# wherever it is moved to. The shared and the static library may be installed into one tree.
#
# Components: runtime, development, documents, debug; and digest, of examples/CMakeLists.txt.

include(CMakePackageConfigHelpers)

# Of a folder of its own, for "common" alone may be anybody's.
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
  install(FILES "${PROJECT_BINARY_DIR}/libshell32-ordinals.a"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
endif()

# The CMake package.
install(EXPORT tarsio-common FILE ${PROJECT_NAME}-${kind}.cmake NAMESPACE tarsio::
  DESTINATION "${package_folder}" COMPONENT development)
write_basic_package_version_file("${generated}/${PROJECT_NAME}-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES cmake/install/${PROJECT_NAME}-config.cmake
    "${generated}/${PROJECT_NAME}-config-version.cmake"
  DESTINATION "${package_folder}" COMPONENT development)

# The pkg-config module. The Windows package holds libcrypto without what linking with it takes, so
# there only the static library's module asks for it.
file(RELATIVE_PATH prefix_from_module "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" prefix_from_module "${prefix_from_module}")
if(NOT WIN32)
  set(threads " -pthread")
  set(private_packages "Requires.private: libcrypto")
elseif(NOT BUILD_SHARED_LIBS)
  set(private_packages "Requires.private: libcrypto")
  set(private_libraries "Libs.private: -lshell32-ordinals -l:libssp.a")
endif()
configure_file(cmake/install/${PROJECT_NAME}.pc.in "${generated}/${PROJECT_NAME}.pc" @ONLY)
install(FILES "${generated}/${PROJECT_NAME}.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

# On Windows, all that a program needs beside it, and the terms on which it is handed on.
if(WIN32)
  tarsio_runtime_dlls(runtime_dlls)
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

# The debug information leaves the library. A shared library's goes into a file that gdb finds from
# the library, whatever the folder; a static library's is of no use in a file of its own.
set(library_folder "${CMAKE_INSTALL_LIBDIR}")
set(library_component development)
if(BUILD_SHARED_LIBS)
  if(WIN32)
    set(library_folder "${CMAKE_INSTALL_BINDIR}")
  endif()
  set(library_component runtime)
  set(debug_file "${generated}/$<TARGET_FILE_NAME:tarsio-common>.debug")
  add_custom_command(TARGET tarsio-common POST_BUILD VERBATIM
    COMMAND "${CMAKE_OBJCOPY}" --only-keep-debug "$<TARGET_FILE:tarsio-common>" "${debug_file}")
  install(FILES "${debug_file}" DESTINATION "${library_folder}/.debug" COMPONENT debug)
endif()
set(installed_library "${library_folder}/$<TARGET_FILE_NAME:tarsio-common>")
install(CODE "
  set(library \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${installed_library}\")
  set(debug_file \"${debug_file}\")
  set(objcopy \"${CMAKE_OBJCOPY}\")
  include(\"${PROJECT_SOURCE_DIR}/cmake/install/strip.cmake\")"
  COMPONENT ${library_component})

include(TarsioBillOfMaterials)
tarsio_install_bill_of_materials("${CMAKE_INSTALL_DOCDIR}" "${installed_library}" documents)
