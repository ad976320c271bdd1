# Settings that every target shares, and the one way to make a target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # The sloppiness lets ccache serve files that use a precompiled header; with paths relative to the checkout, one
  # checkout's results serve another, however the build was started.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros
    CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${CCACHE})
endif()

add_library(tessivox_options INTERFACE)
target_compile_options(tessivox_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
  # Without tail calls a chain of coroutines that finish at once grows the stack.
  -foptimize-sibling-calls
  $<$<BOOL:${TESSIVOX_WERROR}>:-Werror>)
target_include_directories(tessivox_options INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_link_libraries(tessivox_options INTERFACE Threads::Threads)
if(TESSIVOX_SANITIZE)
  target_compile_options(tessivox_options INTERFACE -fsanitize=${TESSIVOX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tessivox_options INTERFACE -fsanitize=${TESSIVOX_SANITIZE})
endif()

# tessivox_library(NAME [DEPENDS target...]): one static library of all sources in the current folder.
function(tessivox_library name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h ports/*.cpp ports/*.h)
  if(NOT sources MATCHES "\\.cpp")
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE tessivox_options ${ARG_DEPENDS})
    return()
  endif()
  add_library(${name} STATIC ${sources})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(${name} PUBLIC tessivox_options ${ARG_DEPENDS})
endfunction()
