fuzz_target(space space_load.cc fundra_core)
