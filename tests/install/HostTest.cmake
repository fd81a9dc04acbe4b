# Installs the build tree into a fresh prefix, moves it, builds the host against it and runs it.
#   cmake -DBUILD_DIR= -DHOST_DIR= -DWORK_DIR= -DFIND=cmake|pkg-config -DLIBDIR= -DC_COMPILER= -DC_FLAGS=
#         -DGENERATOR= -P ...
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  message(STATUS "${out}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}: ${result}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/installed)
# Whatever still points to the first place fails from here on.
file(RENAME ${WORK_DIR}/installed ${WORK_DIR}/moved)
set(prefix ${WORK_DIR}/moved)

foreach(file include/twintrue/calib.h ${LIBDIR}/libtwintrue.so.0 share/twintrue/presets/default.yaml)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "${file} was not installed")
  endif()
endforeach()

# The example of the header, taken out of its comment.
file(READ ${prefix}/include/twintrue/calib.h header)
string(FIND "${header}" " *   #include <stdio.h>" begin)
string(FIND "${header}" "\n *   }\n" end)
if(begin LESS 0 OR end LESS begin)
  message(FATAL_ERROR "calib.h shows no example")
endif()
math(EXPR length "${end} + 8 - ${begin}")
string(SUBSTRING "${header}" ${begin} ${length} example)
string(REGEX REPLACE "(^|\n) [*]( ? ? ?)" "\\1" example "${example}")
file(WRITE ${WORK_DIR}/example/example.h "${example}")

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${HOST_DIR} -B ${WORK_DIR}/host -DFIND=${FIND} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_C_COMPILER=${C_COMPILER} "-DCMAKE_C_FLAGS=${C_FLAGS} -I${WORK_DIR}/example -Wall -Wextra -Werror")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/host)
# The linker keeps the folder of a library that it was given by path, but not one that it was given by -L.
set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
run(${WORK_DIR}/host/host)

if(PROGRAM)
  unset(ENV{LD_LIBRARY_PATH})
  # A TIFF takes the helper that is installed beside the program.
  set(examples ${prefix}/share/twintrue/examples)
  run(${prefix}/${PROGRAM} inspect stage linear ${examples}/frame.jpg --lens ${examples}/nominal.lens --side left
      -o ${WORK_DIR}/linear.tif)
endif()
file(REMOVE_RECURSE ${WORK_DIR})
