# Demands that the library exports `calib` and nothing else: cmake -DNM= -DLIBRARY= -P SymbolTest.cmake
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${table}")
set(names "")
foreach(line IN LISTS lines)
  # Address, kind, name; a version's own entry is an absolute symbol.
  if(line MATCHES "^[0-9a-f]* ([A-Za-z]) ([^@]+)" AND NOT CMAKE_MATCH_1 STREQUAL "A")
    list(APPEND names "${CMAKE_MATCH_2}")
  endif()
endforeach()
if(NOT names STREQUAL "calib")
  message(FATAL_ERROR "expected `calib` alone, found: ${names}")
endif()
