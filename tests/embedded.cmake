# tarsio_embedded_test(name sources...): a test program with the whole library inside, and on Windows
# the C++ runtime as well. What takes the place of the allocator or of the locks reaches no further
# than the program that it is linked into.

get_target_property(library_sources tarsio-common SOURCES)
list(FILTER library_sources EXCLUDE REGEX "\\.rc$")  # the DLL's alone
list(TRANSFORM library_sources PREPEND "${PROJECT_SOURCE_DIR}/")
add_library(tarsio-common-embedded STATIC EXCLUDE_FROM_ALL ${library_sources})
target_compile_features(tarsio-common-embedded PUBLIC cxx_std_17)
target_compile_definitions(tarsio-common-embedded PUBLIC TARSIO_COMMON_STATIC)
target_include_directories(tarsio-common-embedded
  PUBLIC "${PROJECT_SOURCE_DIR}/include" PRIVATE "${PROJECT_SOURCE_DIR}/src")
target_link_libraries(tarsio-common-embedded PUBLIC Threads::Threads PRIVATE OpenSSL::Crypto)
tarsio_compile_options(tarsio-common-embedded)
if(WIN32)
  tarsio_import_by_ordinal(tarsio-common-embedded "${PROJECT_SOURCE_DIR}/src/platform/windows/shell32.def")
endif()

function(tarsio_embedded_test name)
  tarsio_test_program(${name} ${name}.cpp ${ARGN})
  target_include_directories(${name} PRIVATE
    "${CMAKE_CURRENT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(${name} PRIVATE tarsio-common-embedded)
  target_link_options(${name} PRIVATE $<IF:$<BOOL:${WIN32}>,-static,-static-libstdc++>)
  add_dependencies(${name} tarsio-common)  # which puts the runtime DLLs beside it
endfunction()
