bench_area(bench_send ${CMAKE_SOURCE_DIR}/bench/send_bench.cc zelkor)
