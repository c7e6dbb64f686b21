# cmake -DNM=... -DLIBRARY=... -DLIST=... [-DUPDATE=ON] -P compare.cmake
# Compares the names that a shared library exports with a checked-in list. With UPDATE, rewrites it.

separate_arguments(ARGUMENTS)
execute_process(COMMAND "${NM}" ${ARGUMENTS} "${LIBRARY}"
  OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)

# nm prints "address type name". objdump prints "[index] name" in a separate table that ends with an
# empty line. Brackets are replaced, since CMake's lists treat them specially.
string(REGEX REPLACE "^.*Ordinal/Name Pointer. Table" "" output "${output}")
string(REGEX REPLACE "\n\r?\n.*$" "\n" output "${output}")
string(REGEX REPLACE "[][]" "T" output "${output}")
string(REGEX MATCHALL "[A-Z] [_A-Za-z][^ \r\n]*[\r\n]" lines "${output}")
set(names "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^. |[\r\n]" "" name "${line}")
  list(APPEND names "${name}")
endforeach()
list(SORT names)
list(JOIN names "\n" actual)
string(APPEND actual "\n")

if(UPDATE)
  file(WRITE "${LIST}" "${actual}")
  return()
endif()

file(READ "${LIST}" expected)
if(NOT actual STREQUAL expected)
  file(STRINGS "${LIST}" wanted)
  set(missing ${wanted})
  list(REMOVE_ITEM missing ${names})
  list(REMOVE_ITEM names ${wanted})
  list(JOIN missing "\n  " missing)
  list(JOIN names "\n  " surplus)
  message(FATAL_ERROR
    "The exports differ from the list.\nnot exported:\n  ${missing}\nnot in the list:\n  ${surplus}")
endif()
