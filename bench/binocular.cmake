# Binocular engine per frame, beside the depth view engine's run.
kvdsr_add_bench(bench_binocular ${CMAKE_CURRENT_LIST_DIR}/binocular_bench.cpp)
target_link_libraries(bench_binocular PRIVATE kvdsr_calibpack ${CMAKE_DL_LIBS})
