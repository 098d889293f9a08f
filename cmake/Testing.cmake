# ql_test(NAME SOURCES... LINK libs... [TIMEOUT seconds]) — one GoogleTest
# executable, its cases registered with CTest one by one, each under a time
# limit (120 s unless named), so a test that waits forever fails instead of
# holding up the run.
include(GoogleTest)
function(ql_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest GTest::gtest_main ql_warnings)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "QL_BUILD_DIR=${PROJECT_BINARY_DIR};QL_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
endfunction()
