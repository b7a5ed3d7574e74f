# Element space, containers, memory, persist headers, assertions.
zove_area(fundra_core
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/debug.cc
  DEPS zelkor)
