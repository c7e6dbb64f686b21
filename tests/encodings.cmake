# The user's locale is part of what a process is started with, so each encoding is a separate test.

find_program(TARSIO_LOCALEDEF localedef REQUIRED)

# The locales are made here, not asked of the machine. Wine takes the code page from them as well.
set(locale_folder "${CMAKE_CURRENT_BINARY_DIR}/locales")
set(locales "")
foreach(locale en_US.ISO-8859-1 ja_JP.EUC-JP ja_JP.UTF-8 ru_RU.CP1251 ru_RU.UTF-8)
  string(REGEX MATCH "^([^.]+)\\.(.+)$" parts ${locale})
  add_custom_command(OUTPUT "${locale_folder}/${locale}/LC_CTYPE"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${locale_folder}"
    COMMAND "${TARSIO_LOCALEDEF}" --no-hard-links -i ${CMAKE_MATCH_1} -f ${CMAKE_MATCH_2}
      "${locale_folder}/${locale}"
    COMMENT "Making the locale ${locale}" VERBATIM)
  list(APPEND locales "${locale_folder}/${locale}/LC_CTYPE")
endforeach()
add_custom_target(test-locales DEPENDS ${locales})

# charset_cvt_test.`name` runs the cases of `program` for a user's `encoding`, which the variables in
# ARGN choose. The C runtime's name of that user's locale ends in `runtime_locale`.
function(tarsio_test_encoding name program encoding runtime_locale)
  add_test(NAME charset_cvt_test.${name} COMMAND ${program} "--gtest_filter=Environment/*")
  set(environment ${ARGN} TARSIO_TEST_ENCODING=${encoding}
    TARSIO_TEST_RUNTIME_LOCALE=${runtime_locale} "LOCPATH=${locale_folder}"
    "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/support/posix/leaks.supp")
  set_tests_properties(charset_cvt_test.${name} PROPERTIES TIMEOUT 120 LABELS charset_cvt_test
    ENVIRONMENT "${environment}" FAIL_REGULAR_EXPRESSION "Running 0 tests")
endfunction()

function(tarsio_test_encodings)
  add_dependencies(charset_cvt_test test-locales)
  if(NOT WIN32)
    tarsio_test_encoding(latin1 charset_cvt_test latin1 .ISO-8859-1 LC_ALL=en_US.ISO-8859-1)
    tarsio_test_encoding(eucjp charset_cvt_test eucjp .EUC-JP LC_ALL=ja_JP.EUC-JP)
    tarsio_test_encoding(utf8 charset_cvt_test utf8 .UTF-8 LC_ALL=ja_JP.UTF-8)
    tarsio_test_encoding(none charset_cvt_test none "" LC_ALL=no_SUCH.locale)
    return()
  endif()
  tarsio_test_encoding(cp1252 charset_cvt_test cp1252 .1252 LC_ALL=C)
  tarsio_test_encoding(cp932 charset_cvt_test cp932 .932 LC_ALL=ja_JP.UTF-8)
  tarsio_test_encoding(cp1251 charset_cvt_test cp1251 .1251 LC_ALL=ru_RU.UTF-8)
  # The system's code page is 1251 here, which the user's locale does not have.
  tarsio_test_encoding(cp932_of_the_user charset_cvt_test cp932 .932
    LC_ALL= LC_CTYPE=ru_RU.UTF-8 LC_MESSAGES=ja_JP.UTF-8)
  # The same program, with UTF-8 for its code page.
  enable_language(RC)
  add_executable(charset_cvt_utf8_test
    $<TARGET_OBJECTS:charset_cvt_test> support/windows/utf8_code_page.rc)
  target_link_libraries(charset_cvt_utf8_test PRIVATE tarsio::common GTest::gmock_main)
  tarsio_test_encoding(utf8 charset_cvt_utf8_test utf8 .932 LC_ALL=ja_JP.UTF-8)
endfunction()
