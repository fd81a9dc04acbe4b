# Demands that the program's start loads no library of OpenImageIO, which takes longer than most commands:
# cmake -DPROGRAM= -P StartTest.cmake
set(ENV{LD_TRACE_LOADED_OBJECTS} 1)
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE libraries COMMAND_ERROR_IS_FATAL ANY)
unset(ENV{LD_TRACE_LOADED_OBJECTS})
if(NOT libraries MATCHES "libc\\.so" OR libraries MATCHES "OpenImageIO")
  message(FATAL_ERROR "expected the program's libraries without OpenImageIO's, found:\n${libraries}")
endif()
