# Stereo view: the 0xF01 pair against the plane warps it is made of, and Init.
if(TARGET kvdsr_calibpack)
  kvdsr_add_bench(bench_stereoview ${CMAKE_CURRENT_LIST_DIR}/stereoview_bench.cpp)
  target_link_libraries(bench_stereoview PRIVATE kvdsr_calibpack)
endif()
