# What `cmake --install` puts where: library, header, program, packages for CMake and pkg-config, presets,
# example.

option(TWINTRUE_INSTALL "Install the library and the program" ${PROJECT_IS_TOP_LEVEL})
if(NOT TWINTRUE_INSTALL)
  return()
endif()

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TwinTrue)
set(data_dir ${CMAKE_INSTALL_DATADIR}/twintrue)

install(TARGETS twintrue EXPORT TwinTrueTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/twintrue/calib.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/twintrue)
install(EXPORT TwinTrueTargets NAMESPACE TwinTrue:: DESTINATION ${package_dir})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TwinTrueConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/TwinTrueConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TwinTrueConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TwinTrueConfig.cmake ${PROJECT_BINARY_DIR}/TwinTrueConfigVersion.cmake
        DESTINATION ${package_dir})

# The prefix is found from where the .pc file stands, so that an installed tree can be moved; only an absolute
# library folder pins it.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(TWINTRUE_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" up ${up})
  set(TWINTRUE_PC_PREFIX "\${pcfiledir}/${up}")
endif()
set(TWINTRUE_PC_LIBDIR ${CMAKE_INSTALL_LIBDIR})
set(TWINTRUE_PC_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
foreach(dir LIBDIR INCLUDEDIR)
  if(NOT IS_ABSOLUTE ${TWINTRUE_PC_${dir}})
    string(PREPEND TWINTRUE_PC_${dir} "\${prefix}/")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/twintrue.pc.in ${PROJECT_BINARY_DIR}/twintrue.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/twintrue.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET twintrue_cli)
  # The program finds its library and its helper beside it wherever the tree stands.
  file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(twintrue_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
  install(TARGETS twintrue_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS twintrue_picture_helper RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/twintrue)
endif()
if(TARGET twintrue_manual_pages)
  set(pages ${PROJECT_BINARY_DIR}/apps/manual/pages)
  install(DIRECTORY ${pages}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR})
  install(FILES ${pages}/bash/twintrue DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${pages}/zsh/_twintrue DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${pages}/fish/twintrue.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/presets DESTINATION ${data_dir} FILES_MATCHING PATTERN "*.yaml")
install(FILES ${PROJECT_SOURCE_DIR}/examples/frame.jpg ${PROJECT_SOURCE_DIR}/examples/nominal.lens
              ${PROJECT_SOURCE_DIR}/examples/truth.lens ${PROJECT_SOURCE_DIR}/examples/LICENCE.md
        DESTINATION ${data_dir}/examples)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
