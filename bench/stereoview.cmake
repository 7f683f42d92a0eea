# Stereo view and SPR runs against the previous run paths (kept with the
# tests as references), and Init.
if(TARGET kvdsr_calibpack)
  kvdsr_add_bench(bench_stereoview ${CMAKE_CURRENT_LIST_DIR}/stereoview_bench.cpp)
  target_link_libraries(bench_stereoview PRIVATE kvdsr_calibpack)
  target_include_directories(bench_stereoview PRIVATE ${PROJECT_SOURCE_DIR}/tests/stereoview)
endif()
