# Instruction-set flags of the half-width row kernels. x86 kernels are chosen
# at run time; NEON is always present on our ARM targets.
set(_stereoview ${PROJECT_SOURCE_DIR}/src/stereoview)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|amd64|i[3-6]86")
  set_source_files_properties(${_stereoview}/halve_kernels_sse41.cpp PROPERTIES COMPILE_OPTIONS "-msse4.1")
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm" AND NOT ANDROID_ABI STREQUAL "arm64-v8a")
  set_source_files_properties(${_stereoview}/halve_kernels_neon.cpp PROPERTIES COMPILE_OPTIONS "-mfpu=neon")
endif()
