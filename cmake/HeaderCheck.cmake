# Every header must compile alone. The target `header_check`, part of `all`, compiles one generated source a header
# without optimisation, debug information or code for sanitizers; ccache remembers the results.

set(header_sources "")
foreach(folder src backend tests)
  set(root ${CMAKE_SOURCE_DIR}/${folder})
  if(folder STREQUAL "backend")
    set(root ${CMAKE_SOURCE_DIR})
  endif()
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${root} ${CMAKE_SOURCE_DIR}/${folder}/*.h)
  foreach(header IN LISTS headers)
    set(source ${CMAKE_BINARY_DIR}/header_check/${folder}/${header}.cpp)
    # Twice, so that a missing #pragma once shows.
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"@header@\"\n#include \"@header@\"\n" @ONLY)
    list(APPEND header_sources ${source})
  endforeach()
endforeach()
add_library(header_check OBJECT ${header_sources})
target_link_libraries(header_check PRIVATE tessivox_test_support tessivox_posix tessivox_ffmpeg tessivox_pulse tessivox_gio
  tessivox_desktop tessivox_qt tessivox_backend_parts)
target_compile_definitions(header_check PRIVATE TESSIVOX_BACKEND="" TESSIVOX_PROGRAM="")
# As properties of the sources these come last, after what the libraries ask for.
set_source_files_properties(${header_sources} PROPERTIES COMPILE_OPTIONS "-O0;-g0;-fno-sanitize=all")
