# A process gets the user's locale from its environment at start, so each encoding is a separate test.

# tarsio_test_locales(programs...): builds locales instead of using the machine's. Wine derives its code
# page from them. TARSIO_TEST_LOCALES is their folder.
function(tarsio_test_locales)
  find_program(TARSIO_LOCALEDEF localedef REQUIRED)
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/locales")
  set(locales "")
  foreach(locale en_US.ISO-8859-1 ja_JP.EUC-JP ja_JP.UTF-8 ru_RU.CP1251 ru_RU.UTF-8)
    string(REGEX MATCH "^([^.]+)\\.(.+)$" parts ${locale})
    add_custom_command(OUTPUT "${folder}/${locale}/LC_CTYPE"
      COMMAND "${CMAKE_COMMAND}" -E make_directory "${folder}"
      COMMAND "${TARSIO_LOCALEDEF}" --no-hard-links -i ${CMAKE_MATCH_1} -f ${CMAKE_MATCH_2}
        "${folder}/${locale}"
      COMMENT "Building the locale ${locale}" VERBATIM)
    list(APPEND locales "${folder}/${locale}/LC_CTYPE")
  endforeach()
  add_custom_target(test-locales DEPENDS ${locales})
  foreach(program IN LISTS ARGN)
    add_dependencies(${program} test-locales)
    target_compile_definitions(${program} PRIVATE "TARSIO_TEST_LOCALES=\"${folder}\"")
  endforeach()
  set(locale_folder "${folder}" PARENT_SCOPE)
endfunction()

# tarsio_test_encoding(name program encoding runtime_locale variables...): runs the cases of `program` with
# environment variables that select `encoding`. The C runtime's name of the locale must end in
# `runtime_locale`.
function(tarsio_test_encoding name program encoding runtime_locale)
  set(test charset_cvt_test.${name})
  add_test(NAME ${test} COMMAND ${program} "--gtest_filter=Environment/*")
  set(environment ${ARGN} TARSIO_TEST_ENCODING=${encoding}
    TARSIO_TEST_RUNTIME_LOCALE=${runtime_locale} "LOCPATH=${locale_folder}"
    "LSAN_OPTIONS=suppressions=${test_support}/posix/leaks.supp")
  set_tests_properties(${test} PROPERTIES TIMEOUT 120 LABELS charset_cvt_test
    ENVIRONMENT "${environment}" FAIL_REGULAR_EXPRESSION "Running 0 tests")
endfunction()

# tarsio_test_encodings(program): runs the cases with each encoding that the system supports.
function(tarsio_test_encodings program)
  add_dependencies(${program} test-locales)
  if(NOT WIN32)
    tarsio_test_encoding(latin1 ${program} latin1 .ISO-8859-1 LC_ALL=en_US.ISO-8859-1)
    tarsio_test_encoding(eucjp ${program} eucjp .EUC-JP LC_ALL=ja_JP.EUC-JP)
    tarsio_test_encoding(utf8 ${program} utf8 .UTF-8 LC_ALL=ja_JP.UTF-8)
    tarsio_test_encoding(none ${program} none "" LC_ALL=no_SUCH.locale)
    return()
  endif()
  tarsio_test_encoding(cp1252 ${program} cp1252 .1252 LC_ALL=C)
  tarsio_test_encoding(cp932 ${program} cp932 .932 LC_ALL=ja_JP.UTF-8)
  tarsio_test_encoding(cp1251 ${program} cp1251 .1251 LC_ALL=ru_RU.UTF-8)
  # The system's code page is 1251, but the user's locale uses another one.
  tarsio_test_encoding(cp932_of_the_user ${program} cp932 .932
    LC_ALL= LC_CTYPE=ru_RU.UTF-8 LC_MESSAGES=ja_JP.UTF-8)
  # The same program, with UTF-8 as its code page.
  enable_language(RC)
  add_executable(charset_cvt_utf8_test
    $<TARGET_OBJECTS:${program}> ${system_support}/utf8_code_page.rc)
  target_link_libraries(charset_cvt_utf8_test PRIVATE tarsio::common GTest::gmock_main)
  tarsio_test_encoding(utf8 charset_cvt_utf8_test utf8 .932 LC_ALL=ja_JP.UTF-8)
endfunction()
