# Functions that define the test programs.

# System-specific test support is in a separate folder for each system.
if(WIN32)
  set(system_support "${PROJECT_SOURCE_DIR}/tests/support/windows")
else()
  set(system_support "${PROJECT_SOURCE_DIR}/tests/support/posix")
endif()
set(test_support "${PROJECT_SOURCE_DIR}/tests/support")

# The library is optimised; the tests are not, so they compile four times as fast. The exceptions compute
# a lot, count allocations that the compiler may omit, or race.
set(optimised_tests charset_cvt_test utf8_check_test string_utils_test allocation_counts_test
  races_test explorer)

# tarsio_test_program(name sources...): each case runs in a separate process, since the log and the timers
# live as long as the process.
function(tarsio_test_program name)
  add_executable(${name} ${ARGN})
  if(NOT MSVC AND NOT name IN_LIST optimised_tests)
    set_source_files_properties(${name}.cpp PROPERTIES COMPILE_OPTIONS -O0)
  endif()
  target_compile_features(${name} PRIVATE cxx_std_17)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE GTest::gmock_main)
  tarsio_compile_options(${name})
  if(under_wine)
    add_dependencies(${name} launcher)
  endif()
  set(timeout 300)
  if(name MATCHES "^(races_test|explorer)$")  # take minutes on a busy machine
    set(timeout 600)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${timeout} LABELS ${name})
endfunction()

# tarsio_test(name sources...): a test in name.cpp that links with the library.
function(tarsio_test name)
  tarsio_test_program(${name} ${name}.cpp ${ARGN})
  target_link_libraries(${name} PRIVATE tarsio::common)
endfunction()

# tarsio_platform_test(name sources...): a test in name.cpp that compiles sources of the library and
# replaces the platform layer.
function(tarsio_platform_test name)
  list(TRANSFORM ARGN PREPEND "${PROJECT_SOURCE_DIR}/src/" OUTPUT_VARIABLE sources)
  tarsio_test_program(${name} ${name}.cpp ${sources})
  target_compile_definitions(${name} PRIVATE TARSIO_COMMON_STATIC)
  target_include_directories(${name} PRIVATE
    "${PROJECT_SOURCE_DIR}/include" "${PROJECT_SOURCE_DIR}/src")
  add_dependencies(${name} tarsio-common)  # which copies the runtime DLLs
endfunction()

# tarsio_embedded_library(): a static library of all sources, for tests that must contain the library.
function(tarsio_embedded_library)
  get_target_property(sources tarsio-common SOURCES)
  list(FILTER sources EXCLUDE REGEX "\\.rc$")  # for the DLL only
  list(TRANSFORM sources PREPEND "${PROJECT_SOURCE_DIR}/")
  add_library(tarsio-common-embedded STATIC EXCLUDE_FROM_ALL ${sources})
  tarsio_compile_for_avx2("${PROJECT_SOURCE_DIR}/src/utf8_check_avx2.cpp")
  target_compile_features(tarsio-common-embedded PUBLIC cxx_std_17)
  target_compile_definitions(tarsio-common-embedded PUBLIC TARSIO_COMMON_STATIC)
  target_include_directories(tarsio-common-embedded
    PUBLIC "${PROJECT_SOURCE_DIR}/include" PRIVATE "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(tarsio-common-embedded PUBLIC Threads::Threads PRIVATE OpenSSL::Crypto)
  tarsio_compile_options(tarsio-common-embedded)
  if(WIN32)
    tarsio_import_by_ordinal(tarsio-common-embedded
      "${PROJECT_SOURCE_DIR}/src/platform/windows/shell32.def")
  endif()
endfunction()

# tarsio_embedded_test(name sources...): a test in name.cpp that contains the library and, on Windows, the
# C++ runtime. So a replaced allocator, lock or transfer affects the library and no other module.
function(tarsio_embedded_test name)
  tarsio_test_program(${name} ${name}.cpp ${ARGN})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(${name} PRIVATE tarsio-common-embedded)
  target_link_options(${name} PRIVATE $<IF:$<BOOL:${WIN32}>,-static,-static-libstdc++>)
  add_dependencies(${name} tarsio-common)  # which copies the runtime DLLs
endfunction()

# tarsio_tls_library(program): links the program with OpenSSL's libssl.
function(tarsio_tls_library program)
  find_package(OpenSSL 1.1 REQUIRED COMPONENTS SSL)
  target_link_libraries(${program} PRIVATE OpenSSL::SSL)
  if(WIN32 AND TARSIO_SHARED_CRYPTO)
    file(GLOB tls_dll "${OPENSSL_INCLUDE_DIR}/../bin/libssl-*.dll")
    add_custom_command(TARGET ${program} POST_BUILD
      COMMAND "${CMAKE_COMMAND}" -E copy_if_different ${tls_dll} "$<TARGET_FILE_DIR:${program}>"
      VERBATIM)
  endif()
endfunction()

# tarsio_wrap(program symbols...): calls of SYMBOL go to __wrap_SYMBOL, which the program defines.
function(tarsio_wrap program)
  foreach(symbol IN LISTS ARGN)
    target_link_options(${program} PRIVATE "LINKER:--wrap=${symbol}")
  endforeach()
endfunction()
