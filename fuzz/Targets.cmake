# The targets: twintrue_fuzz_targets(command) calls command(name source... USES libraries...) for each.
macro(twintrue_fuzz_targets command)
  cmake_language(CALL ${command} lens_language SOURCES LensLanguage.cpp USES twintrue_lens)
  cmake_language(CALL ${command} lens_rig SOURCES LensRig.cpp USES twintrue_lens)
  cmake_language(CALL ${command} parameters SOURCES Parameters.cpp USES twintrue_params)
  cmake_language(CALL ${command} settings SOURCES Settings.cpp LegalSettings.cpp USES twintrue_run)
  cmake_language(CALL ${command} calib_call SOURCES CalibCall.cpp LegalSettings.cpp USES twintrue twintrue_run)
  cmake_language(CALL ${command} kernels SOURCES Kernels.cpp USES twintrue_run)
endmacro()
