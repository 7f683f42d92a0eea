# Stereo view and SPR Init against OpenCV's map building for the same sizes.
if(TARGET kvdsr_calibpack)
  kvdsr_add_bench(init_bench ${CMAKE_CURRENT_LIST_DIR}/init_bench.cpp OPENCV)
  target_link_libraries(init_bench PRIVATE kvdsr_calibpack)
endif()
