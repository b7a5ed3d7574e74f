# zove_area(NAME SOURCES ... [DEPS area ...] [LIBS lib ...])
#   An object library for one area of the code. DEPS names the areas it builds on; their objects
#   are linked together wherever this area is linked (see zove_link_areas).
function(zove_area name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS;LIBS" ${ARGN})
  add_library(${name} OBJECT ${A_SOURCES})
  target_link_libraries(${name} PUBLIC ${A_LIBS})
  set_property(TARGET ${name} PROPERTY ZOVE_DEPS ${A_DEPS})
  set_property(TARGET ${name} PROPERTY ZOVE_LIBS ${A_LIBS})
endfunction()

# zove_module_area(NAME SOURCES ... [DEPS area ...])
#   An area of the module (libzove.so). Its symbols are hidden: the module exports only what is
#   marked ZOVE_EXPORT (include/zove/export.h). Tests and tools that need an area's internals
#   link its objects (zove_link_areas) instead of reaching through the shared library.
function(zove_module_area name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS" ${ARGN})
  zove_area(${name} SOURCES ${A_SOURCES} DEPS ${A_DEPS} LIBS zplatform)
  set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_definitions(${name} PRIVATE ZOVE_BUILDING_MODULE)
  set_property(GLOBAL APPEND PROPERTY ZOVE_MODULE_AREAS ${name})
endfunction()

# Collects an area and, depth first, the areas it builds on.
function(zove_area_closure out)
  set(seen "")
  set(todo ${ARGN})
  while(todo)
    list(POP_FRONT todo a)
    if(NOT a IN_LIST seen)
      list(APPEND seen ${a})
      get_property(deps TARGET ${a} PROPERTY ZOVE_DEPS)
      list(APPEND todo ${deps})
    endif()
  endwhile()
  set(${out} ${seen} PARENT_SCOPE)
endfunction()

# Links the objects of the given areas (and of everything they build on) into a target.
function(zove_link_areas target)
  zove_area_closure(all ${ARGN})
  foreach(a ${all})
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${a}>)
    get_property(libs TARGET ${a} PROPERTY ZOVE_LIBS)
    target_link_libraries(${target} PRIVATE ${libs})
  endforeach()
endfunction()

# zove_test(NAME SOURCES ... [AREAS area ...] [LIBS lib ...] [CHECK_SENDS] [THREADS]): one
# GoogleTest program, registered with CTest test by test. AREAS are linked as objects (with what
# they build on). With CHECK_SENDS a test fails when a send reached no handler
# (tests/support/sends.h). THREADS marks a program whose code runs on several threads: its tests
# carry the label `threads`, and the ThreadSanitizer build (target tsan_tests) runs them.
add_custom_target(tsan_tests)
function(zove_test name)
  cmake_parse_arguments(T "CHECK_SENDS;THREADS" "" "SOURCES;AREAS;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  zove_link_areas(${name} ${T_AREAS})
  if(T_CHECK_SENDS)
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/main.cc)
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest Threads::Threads)
  else()
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gtest_main Threads::Threads)
  endif()
  if(T_THREADS)
    add_dependencies(tsan_tests ${name})
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600 LABELS threads)
  else()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600)
  endif()
endfunction()
