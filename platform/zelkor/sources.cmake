# The object framework: objects, classes, dispatch, channels, boot, blocker, log.
zove_area(zelkor
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/log.cc
  LIBS Threads::Threads ${CMAKE_DL_LIBS})
