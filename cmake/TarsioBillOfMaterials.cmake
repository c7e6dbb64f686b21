# The software bill of materials: what the library links with, and what of that is handed on with it,
# in SPDX 3.0.1. It is written when it is installed, for it holds checksums of the installed files.

# In the folder `folder`, of the library that the same component installs as `library`.
function(tarsio_install_bill_of_materials folder library component)
  if(WIN32)  # the compiler tells a part of its version only
    execute_process(OUTPUT_VARIABLE gcc_version ERROR_QUIET
      COMMAND dpkg-query -W -f "\${Version}" gcc-mingw-w64-x86-64-posix-runtime)
    execute_process(OUTPUT_VARIABLE mingw_version ERROR_QUIET
      COMMAND dpkg-query -W -f "\${Version}" mingw-w64-x86-64-dev)
  endif()
  install(CODE "
    set(name ${PROJECT_NAME})
    set(version ${PROJECT_VERSION})
    set(windows \"${WIN32}\")
    set(gcc_version \"${gcc_version}\")
    set(mingw_version \"${mingw_version}\")
    set(openssl_version \"${OPENSSL_VERSION}\")
    set(library \"${library}\")
    set(prefix \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    set(bill \"\${prefix}/${folder}/${PROJECT_NAME}.spdx.json\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/install/bill_of_materials.cmake\")"
    COMPONENT ${component})
endfunction()
