if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|amd64|i[3-6]86")
  # Instruction-set flags of the SIMD kernels, chosen at run time.
  set_property(SOURCE ${PROJECT_SOURCE_DIR}/src/binocular/match_kernels_avx512.cpp APPEND PROPERTY
    COMPILE_OPTIONS "-mavx512f;-mavx512bw;-mavx512vbmi")
endif()
