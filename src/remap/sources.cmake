# Instruction-set flags of the warp kernels. x86 kernels are chosen at run
# time (__builtin_cpu_supports); NEON is always present on our ARM targets.
set(_remap ${PROJECT_SOURCE_DIR}/src/remap)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|amd64|i[3-6]86")
  set_source_files_properties(${_remap}/warp_sse41.cpp PROPERTIES COMPILE_OPTIONS "-msse4.1")
  set_source_files_properties(${_remap}/warp_avx2.cpp ${_remap}/remap_lut_avx2.cpp
    ${_remap}/distortion_map_avx2.cpp PROPERTIES COMPILE_OPTIONS "-mavx2")
  set_source_files_properties(${_remap}/remap_lut_avx512.cpp ${_remap}/distortion_map_avx512.cpp PROPERTIES COMPILE_OPTIONS
    "-mavx512f;-mavx512dq;-mavx512vl;-mavx512bw;$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")  # GCC 12: false alarms in its own headers
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm" AND NOT ANDROID_ABI STREQUAL "arm64-v8a")
  set_source_files_properties(${_remap}/warp_neon.cpp PROPERTIES COMPILE_OPTIONS "-mfpu=neon")
endif()
# sqrt without errno so that the radius loop of the map build vectorises
# (results are the same IEEE square roots).
set_property(SOURCE ${_remap}/distortion_map.cpp APPEND PROPERTY COMPILE_OPTIONS "-fno-math-errno")
# No fused multiply-add contraction: the tables must come out the same on
# every architecture (and equal to the plain per-pixel formulas).
file(GLOB _remap_sources ${_remap}/*.cpp)
set_property(SOURCE ${_remap_sources} APPEND PROPERTY COMPILE_OPTIONS "-ffp-contract=off")
