# Element space, containers, memory, persist headers, assertions.
zove_area(fundra_core
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/debug.cc
    ${CMAKE_CURRENT_LIST_DIR}/dict.cc
    ${CMAKE_CURRENT_LIST_DIR}/huge_alloc.cc
    ${CMAKE_CURRENT_LIST_DIR}/memory.cc
    ${CMAKE_CURRENT_LIST_DIR}/persist.cc
    ${CMAKE_CURRENT_LIST_DIR}/rnlist.cc
    ${CMAKE_CURRENT_LIST_DIR}/space.cc
    ${CMAKE_CURRENT_LIST_DIR}/space_check.cc
    ${CMAKE_CURRENT_LIST_DIR}/space_handover.cc
    ${CMAKE_CURRENT_LIST_DIR}/space_heap.cc
  DEPS zelkor)
