# Everything is hidden unless marked for export; the plug-in module exports
# only its entry point.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# ql_library(NAME SOURCES... [LINK libs...]) — an internal static library of
# project code with the strict warning set.
function(ql_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_LINK} PRIVATE ql_warnings)
endfunction()
