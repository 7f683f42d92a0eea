# Contention: every run function idle at 1 and N threads and beside busy
# processes, through the public interface (a plain timing loop, no Google
# Benchmark: it reports percentiles of single calls).
if(TARGET kvdsr_calibpack AND TARGET kvdsr_tool_common)
  kvdsr_add_bench(contention_bench ${CMAKE_CURRENT_LIST_DIR}/contention_bench.cpp)
  target_link_libraries(contention_bench PRIVATE kvdsr_calibpack kvdsr_tool_common)
endif()
