# How targets of this project are made.

# Flags of every target. Results must be the same on every machine and for every vector width, so the
# compiler may neither fuse multiply and add nor reorder floating-point arithmetic.
add_library(twintrue_flags INTERFACE)
target_compile_options(twintrue_flags INTERFACE -ffp-contract=off -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(TWINTRUE_WERROR)
  target_compile_options(twintrue_flags INTERFACE -Werror)
endif()
if(TWINTRUE_SANITIZE)
  target_compile_options(twintrue_flags INTERFACE -fsanitize=${TWINTRUE_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_compile_definitions(twintrue_flags INTERFACE _GLIBCXX_ASSERTIONS)
  target_link_options(twintrue_flags INTERFACE -fsanitize=${TWINTRUE_SANITIZE})
endif()

if(TWINTRUE_COVERAGE)
  target_compile_options(twintrue_flags INTERFACE -fprofile-instr-generate -fcoverage-mapping)
  target_link_options(twintrue_flags INTERFACE -fprofile-instr-generate)
endif()

# twintrue_layer(NAME folder SOURCES ... USES ...)
#
# One layer of the library: the static target twintrue_NAME from the sources of `folder`. Headers are
# included by their path from the project's root ("imaging/XMat.h"). The root itself is on no include path:
# a target sees its own folder and, through USES, the folders of the layers below it, each by a link of its
# own in the build tree. So an include against the order of the layers does not compile.
function(twintrue_layer name folder)
  cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
  set(root ${PROJECT_BINARY_DIR}/layers/${name})
  cmake_path(GET folder PARENT_PATH parent)
  file(MAKE_DIRECTORY ${root}/${parent})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  add_library(twintrue_${name} STATIC ${arg_SOURCES})
  target_include_directories(twintrue_${name} PUBLIC ${root})
  target_link_libraries(twintrue_${name} PUBLIC ${arg_USES} PRIVATE twintrue_flags)
endfunction()

# The public header, for the layers that speak its types.
add_library(twintrue_api INTERFACE)
target_include_directories(twintrue_api INTERFACE ${PROJECT_SOURCE_DIR}/include)

# twintrue_test(name SOURCES ... USES ...): one GoogleTest program, its cases known to CTest by name.
function(twintrue_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_USES} twintrue_test_support GTest::gmock_main twintrue_flags)
  gtest_discover_tests(${name} TEST_PREFIX ${name}. DISCOVERY_TIMEOUT 60)
endfunction()
