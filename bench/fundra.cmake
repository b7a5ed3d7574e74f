bench_area(bench_space ${CMAKE_SOURCE_DIR}/bench/fundra_space_bench.cc fundra_core)
