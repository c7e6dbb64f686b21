# tarsio_test_encodings(program): runs what `program` has for an encoding, with "Environment" in its
# name, once in each encoding. The user's locale is part of what a process is started with, so every
# encoding is a test of its own. TARSIO_TEST_ENCODING tells the program which.

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

function(tarsio_test_encodings program)
  add_dependencies(${program} test-locales)
  if(WIN32)
    set(encodings cp1252=C cp932=ja_JP.UTF-8 cp1251=ru_RU.UTF-8)
  else()
    set(encodings latin1=en_US.ISO-8859-1 eucjp=ja_JP.EUC-JP utf8=ja_JP.UTF-8 none=no_SUCH.locale)
  endif()
  set(suppressions "${CMAKE_CURRENT_SOURCE_DIR}/support/posix/leaks.supp")
  set(environment "LOCPATH=${locale_folder};LSAN_OPTIONS=suppressions=${suppressions}")
  foreach(encoding IN LISTS encodings)
    string(REGEX MATCH "^(.+)=(.+)$" parts ${encoding})
    add_test(NAME ${program}.${CMAKE_MATCH_1} COMMAND ${program} "--gtest_filter=Environment/*")
    set_tests_properties(${program}.${CMAKE_MATCH_1} PROPERTIES TIMEOUT 120 LABELS ${program}
      ENVIRONMENT "LC_ALL=${CMAKE_MATCH_2};TARSIO_TEST_ENCODING=${CMAKE_MATCH_1};${environment}"
      FAIL_REGULAR_EXPRESSION "Running 0 tests")
  endforeach()
endfunction()
