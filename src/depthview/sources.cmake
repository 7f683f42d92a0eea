# No fused multiply-add contraction: the shift table and the depth tables
# must come out the same on every architecture.
file(GLOB _depthview_sources ${PROJECT_SOURCE_DIR}/src/depthview/*.cpp)
set_property(SOURCE ${_depthview_sources} APPEND PROPERTY COMPILE_OPTIONS "-ffp-contract=off")
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|amd64|i[3-6]86")
  # Instruction-set flags of the SIMD kernels, chosen at run time.
  set_property(SOURCE ${PROJECT_SOURCE_DIR}/src/depthview/resize_kernels_avx2.cpp APPEND PROPERTY
    COMPILE_OPTIONS "-mavx2")
endif()
