# Strings, keyed texts, formats, dates, dialogs, resources.
zove_area(fundra_text
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/utf8.cc
    ${CMAKE_CURRENT_LIST_DIR}/tstring.cc
    ${CMAKE_CURRENT_LIST_DIR}/kstrings.cc
    ${CMAKE_CURRENT_LIST_DIR}/format.cc
    ${CMAKE_CURRENT_LIST_DIR}/scan.cc
    ${CMAKE_CURRENT_LIST_DIR}/tdate.cc
    ${CMAKE_CURRENT_LIST_DIR}/dialogs.cc
    ${CMAKE_CURRENT_LIST_DIR}/resource.cc
  DEPS fundra_core
  LIBS PkgConfig::ICU)
