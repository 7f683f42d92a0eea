kvdsr_add_bench(bench_depthview ${CMAKE_CURRENT_LIST_DIR}/depthview_bench.cpp)
