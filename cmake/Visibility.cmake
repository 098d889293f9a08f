# Everything is hidden unless marked for export; the plug-in module exports
# only its entry point.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# Layers the build enforces. No library exports the repository root: each
# exports its own headers (those named after its sources, plus HEADERS), linked
# into a folder of the build tree at their path in the source tree, so that
# `#include "jpeg/zjpeg.h"` compiles only in code that links ql_jpeg. A
# library's own sources see its whole folder (private headers included).
function(ql_export_headers name scope)
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(exported ${PROJECT_BINARY_DIR}/layers/${name})
  file(REMOVE_RECURSE ${exported})
  file(MAKE_DIRECTORY ${exported}/${folder})
  foreach(file ${ARGN})
    get_filename_component(base ${file} NAME_WLE)
    if(file MATCHES "\\.h$")
      set(header ${file})
    elseif(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${base}.h)
      set(header ${base}.h)
    else()
      continue()
    endif()
    if(NOT EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${header})
      message(FATAL_ERROR "${name}: no header ${folder}/${header}")
    endif()
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${header} ${exported}/${folder}/${header} SYMBOLIC)
  endforeach()
  target_include_directories(${name} ${scope} ${exported})
endfunction()

# A library's (or program's) view of its own folder.
function(ql_own_folder name)
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(own ${PROJECT_BINARY_DIR}/layers/own/${name})
  get_filename_component(parent ${own}/${folder} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${own}/${folder} SYMBOLIC)
  target_include_directories(${name} PRIVATE ${own})
endfunction()

# ql_library(NAME SOURCES... [HEADERS headers...] [LINK libs...]) — an
# internal static library of project code with the strict warning set.
function(ql_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;HEADERS;LINK" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  ql_export_headers(${name} PUBLIC ${arg_SOURCES} ${arg_HEADERS})
  ql_own_folder(${name})
  target_link_libraries(${name} PUBLIC ${arg_LINK} PRIVATE ql_warnings)
endfunction()
