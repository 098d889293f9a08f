# tests/, bench/, fuzz/ and tools/ hold one folder per source folder or tool;
# each folder with a CMakeLists.txt is picked up.
function(ql_add_child_folders)
  file(GLOB children LIST_DIRECTORIES true ${CMAKE_CURRENT_SOURCE_DIR}/*)
  foreach(child ${children})
    if(IS_DIRECTORY ${child} AND EXISTS ${child}/CMakeLists.txt)
      add_subdirectory(${child})
    endif()
  endforeach()
endfunction()
