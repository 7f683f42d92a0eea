# Depth view runs, against a baseline library when one is given.
kvdsr_add_bench(bench_depthview ${CMAKE_CURRENT_LIST_DIR}/depthview_bench.cpp)
target_link_libraries(bench_depthview PRIVATE kvdsr_calibpack ${CMAKE_DL_LIBS})
