# ql_test(NAME SOURCES... LINK libs... [TIMEOUT seconds]) — one GoogleTest
# executable, its cases registered with CTest one by one, each with a time
# limit (120 s unless TIMEOUT names another).
include(GoogleTest)
function(ql_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
  set(timeout TIMEOUT 120)
  if(arg_TIMEOUT)
    set(timeout TIMEOUT ${arg_TIMEOUT})
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest GTest::gtest_main ql_warnings)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES ${timeout} ENVIRONMENT "QL_BUILD_DIR=${PROJECT_BINARY_DIR};QL_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
endfunction()
