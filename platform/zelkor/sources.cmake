# The object framework: objects, classes, dispatch, channels, boot, blocker, log, host values.
zove_area(zelkor
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/blocker.cc
    ${CMAKE_CURRENT_LIST_DIR}/boot.cc
    ${CMAKE_CURRENT_LIST_DIR}/channel.cc
    ${CMAKE_CURRENT_LIST_DIR}/classes.cc
    ${CMAKE_CURRENT_LIST_DIR}/dispatch.cc
    ${CMAKE_CURRENT_LIST_DIR}/host.cc
    ${CMAKE_CURRENT_LIST_DIR}/log.cc
  LIBS Threads::Threads ${CMAKE_DL_LIBS})
