# tests/, bench/, fuzz/ and tools/ hold one folder per source folder or tool;
# each folder with a CMakeLists.txt is picked up, except those named after
# EXCEPT (added elsewhere).
function(ql_add_child_folders)
  cmake_parse_arguments(arg "" "" "EXCEPT" ${ARGN})
  file(GLOB children LIST_DIRECTORIES true ${CMAKE_CURRENT_SOURCE_DIR}/*)
  foreach(child ${children})
    get_filename_component(leaf ${child} NAME)
    if(leaf IN_LIST arg_EXCEPT)
      continue()
    endif()
    if(IS_DIRECTORY ${child} AND EXISTS ${child}/CMakeLists.txt)
      add_subdirectory(${child})
    endif()
  endforeach()
endfunction()
