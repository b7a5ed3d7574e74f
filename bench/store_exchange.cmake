# The exchange stream and the structure walks on a structure of 10k DLs, beside memcpy of the
# stream's bytes. Links the module as a host does.
add_executable(bench_exchange ${CMAKE_SOURCE_DIR}/bench/store_exchange.cc)
target_link_libraries(bench_exchange PRIVATE zove zplatform benchmark::benchmark)
