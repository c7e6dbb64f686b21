# Installs `debug_file` under the name derived from its build id.

execute_process(COMMAND "${readelf}" --notes "${debug_file}"
  OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "Build ID: (..)([0-9a-f]+)" build_id "${notes}")
if(NOT build_id)
  message(FATAL_ERROR "${debug_file} has no build id")
endif()
file(INSTALL "${debug_file}" RENAME ${CMAKE_MATCH_2}.debug
  DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/debug/.build-id/${CMAKE_MATCH_1}")
