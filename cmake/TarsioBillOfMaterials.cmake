# The software bill of materials: what the library links with, and what of that is handed on with it,
# in SPDX 3.0.1. It is written when it is installed, for it holds checksums of the installed files.

# Sets `result` to the version of an installed Debian package, or to "".
function(tarsio_package_version result package)
  execute_process(OUTPUT_VARIABLE version ERROR_QUIET
    COMMAND dpkg-query -W -f "\${Version}" ${package})
  set(${result} "${version}" PARENT_SCOPE)
endfunction()

# In the folder `folder`, of the library that the same component installs as `library`.
function(tarsio_install_bill_of_materials folder library component)
  # The packages' full versions, where there is dpkg; the compiler knows a part of its version only.
  set(openssl_version "${OPENSSL_VERSION}")
  if(WIN32)
    tarsio_package_version(gcc_version gcc-mingw-w64-x86-64-posix-runtime)
    tarsio_package_version(mingw_version mingw-w64-x86-64-dev)
    set(pin "${OPENSSL_INCLUDE_DIR}/../PIN")
    if(EXISTS "${pin}")
      file(STRINGS "${pin}" openssl_version)
      string(REGEX REPLACE " .*" "" openssl_version "${openssl_version}")
    endif()
  else()
    tarsio_package_version(gcc_version libstdc++6)
    tarsio_package_version(glibc_version libc6)
    tarsio_package_version(libssl_version libssl3)
    if(libssl_version)
      set(openssl_version "${libssl_version}")
    endif()
  endif()
  install(CODE "
    set(name ${PROJECT_NAME})
    set(version ${PROJECT_VERSION})
    set(windows \"${WIN32}\")
    set(gcc_version \"${gcc_version}\")
    set(mingw_version \"${mingw_version}\")
    set(glibc_version \"${glibc_version}\")
    set(openssl_version \"${openssl_version}\")
    set(library \"${library}\")
    set(prefix \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    set(bill \"\${prefix}/${folder}/${PROJECT_NAME}.spdx.json\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/install/bill_of_materials.cmake\")"
    COMPONENT ${component})
endfunction()
