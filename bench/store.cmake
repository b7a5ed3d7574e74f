# The store engine beside plain references: item access, collection, growth. Links the module as
# a host does.
add_executable(bench_store ${CMAKE_SOURCE_DIR}/bench/store_bench.cc)
target_link_libraries(bench_store PRIVATE zove zplatform benchmark::benchmark)
