# The value-handle base `@vhd` and its store file (an SQLite database holding the element space
# and the record file's records).
zove_area(zelkor_vhd
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/recfile.cc
    ${CMAKE_CURRENT_LIST_DIR}/vhd.cc
    ${CMAKE_CURRENT_LIST_DIR}/vhd_binding.cc
    ${CMAKE_CURRENT_LIST_DIR}/vhd_db.cc
    ${CMAKE_CURRENT_LIST_DIR}/vhd_format.cc
    ${CMAKE_CURRENT_LIST_DIR}/vhd_rows.cc
    ${CMAKE_CURRENT_LIST_DIR}/vhd_vfs.cc
  DEPS zelkor fundra_core
  LIBS PkgConfig::SQLITE3)
