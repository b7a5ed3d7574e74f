bench_area(bench_text ${CMAKE_SOURCE_DIR}/bench/text_bench.cc fundra_text)
