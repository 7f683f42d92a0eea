# Warp and table build of one 1920x1080 plane against OpenCV and a copy floor.
kvdsr_add_bench(remap_bench ${CMAKE_CURRENT_LIST_DIR}/remap_bench.cpp OPENCV)
if(TARGET kvdsr_calibpack)
  target_link_libraries(remap_bench PRIVATE kvdsr_calibpack)
  target_compile_definitions(remap_bench PRIVATE KVDSR_WITH_CALIBPACK=1)
endif()
