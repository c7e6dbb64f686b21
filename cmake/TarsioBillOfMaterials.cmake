# The software bill of materials in SPDX 3.0.1: what the library links with, and which parts are shipped
# with it. Written during the installation, since it contains checksums of the installed files.

# Sets `result` to the version of an installed Debian package, or to "" if it is not installed.
function(tarsio_package_version result package)
  execute_process(OUTPUT_VARIABLE version ERROR_QUIET
    COMMAND dpkg-query -W -f "\${Version}" ${package})
  set(${result} "${version}" PARENT_SCOPE)
endfunction()

# Sets `result` to the full path of a shared library that the compiler links with.
function(tarsio_runtime_library result name)
  execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${name}"
    OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(IS_ABSOLUTE "${path}")
    file(REAL_PATH "${path}" path)
  else()
    set(path "")  # not found: the library has another name on this system
  endif()
  set(${result} "${path}" PARENT_SCOPE)
endfunction()

# Installs the bill in `folder`. It describes `library`, which the same component must install.
function(tarsio_install_bill_of_materials folder library component)
  # If dpkg is present, uses the packages' full versions; the compiler reports only a part of its own.
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
    tarsio_runtime_library(libstdcxx libstdc++.so.6)
    tarsio_runtime_library(libgcc libgcc_s.so.1)
    tarsio_runtime_library(glibc libc.so.6)
    file(REAL_PATH "${OPENSSL_CRYPTO_LIBRARY}" libcrypto)
  endif()
  install(CODE "
    set(name ${PROJECT_NAME})
    set(version ${PROJECT_VERSION})
    set(windows \"${WIN32}\")
    set(gcc_version \"${gcc_version}\")
    set(mingw_version \"${mingw_version}\")
    set(glibc_version \"${glibc_version}\")
    set(openssl_version \"${openssl_version}\")
    set(libstdcxx \"${libstdcxx}\")
    set(libgcc \"${libgcc}\")
    set(glibc \"${glibc}\")
    set(libcrypto \"${libcrypto}\")
    set(library \"${library}\")
    set(prefix \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    set(bill \"\${prefix}/${folder}/${PROJECT_NAME}.spdx.json\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/install/bill_of_materials.cmake\")"
    COMPONENT ${component})
endfunction()
