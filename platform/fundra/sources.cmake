# The foundation library, in two areas with a list of sources each:
#   core.cmake  element space, containers, memory, persist headers, assertions  (fundra_core)
#   text.cmake  strings, keyed texts, formats, dates, dialogs, resources        (fundra_text)
foreach(part core text)
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${part}.cmake)
    include(${CMAKE_CURRENT_LIST_DIR}/${part}.cmake)
  endif()
endforeach()
