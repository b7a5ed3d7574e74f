# The exchange stream reader: any bytes imported (TSIm) into a DL of a store with some content.
# The target links the module itself, as a host does, so it is written out here rather than
# through fuzz_target (which links object areas).
add_executable(replay_exchange ${CMAKE_SOURCE_DIR}/fuzz/exchange_fuzz.cc
                               ${CMAKE_SOURCE_DIR}/fuzz/replay_main.cc)
target_link_libraries(replay_exchange PRIVATE zove zplatform)
add_test(NAME replay_exchange COMMAND replay_exchange ${CMAKE_SOURCE_DIR}/fuzz/corpus/exchange)
if(ZOVE_FUZZ)
  add_executable(fuzz_exchange ${CMAKE_SOURCE_DIR}/fuzz/exchange_fuzz.cc)
  target_link_libraries(fuzz_exchange PRIVATE zove zplatform)
  target_compile_options(fuzz_exchange PRIVATE -fsanitize=fuzzer)
  target_link_options(fuzz_exchange PRIVATE -fsanitize=fuzzer)
endif()
