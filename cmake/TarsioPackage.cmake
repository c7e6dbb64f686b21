# What CPack creates: Debian packages for Linux, a ZIP for Windows. `./dev package` packs two builds
# together, the shared and the static library.

# The arguments are the results of tarsio_install(); cmake/debian needs them.
function(tarsio_package installed_library debug_file)
  set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
  set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
  # Independent of the umask.
  set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

  if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-windows-x86_64)
    set(CPACK_INSTALLED_DIRECTORIES "${PROJECT_SOURCE_DIR}/cmake/zip" .)
    include(CPack)
    return()
  endif()

  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
  # Set this when you publish the packages.
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${PROJECT_NAME} <${PROJECT_NAME}@owner.invalid>"
    CACHE STRING "The maintainer that the Debian packages name")
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENTS_ALL runtime development dbgsym doc digest)
  set(about "Log, encodings, strings, paths, files, a blocking queue, a thread pool,
latches, timers and system information, the same on Windows and on Linux.
.
This package holds")

  set(runtime_package libtarsio-common${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${about} the shared library.")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
  # The trigger updates the linker's cache, as Debian requires, although CPack's own scripts do so, too.
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")

  set(runtime_version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")
  set(development_package libtarsio-common-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "${about} the headers, the static library,
the CMake package and the pkg-config module.")
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${runtime_package} (= ${runtime_version}), libssl-dev")

  set(dbgsym_package ${runtime_package}-dbgsym)
  set(CPACK_DEBIAN_DBGSYM_PACKAGE_NAME ${dbgsym_package})
  set(CPACK_DEBIAN_DBGSYM_PACKAGE_SECTION debug)
  set(CPACK_DEBIAN_DBGSYM_DESCRIPTION "${about} the debug information of the shared library.")
  set(CPACK_DEBIAN_DBGSYM_PACKAGE_DEPENDS "${runtime_package} (= ${runtime_version})")

  set(doc_package libtarsio-common-doc)
  set(CPACK_DEBIAN_DOC_PACKAGE_NAME ${doc_package})
  set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
  set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_DOC_DESCRIPTION "${about} the manual and the examples.")

  set(digest_package tarsio-digest)
  set(CPACK_DEBIAN_DIGEST_PACKAGE_NAME ${digest_package})
  set(CPACK_DEBIAN_DIGEST_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_DIGEST_DESCRIPTION "SHA-256 digests of many files, on several processors
The program tarsio-digest prints what sha256sum prints, and reads and digests
many files at once.")
  set(CPACK_DEBIAN_DIGEST_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
  set(CPACK_DEBIAN_DIGEST_PACKAGE_DEPENDS "${runtime_package} (>= ${PROJECT_VERSION})")

  include(CPack)
  add_subdirectory(cmake/debian EXCLUDE_FROM_ALL)
endfunction()
