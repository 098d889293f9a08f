# ql_test(NAME SOURCES... LINK libs...) — one GoogleTest executable, its cases
# registered with CTest one by one.
include(GoogleTest)
function(ql_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest GTest::gtest_main ql_warnings)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "QL_BUILD_DIR=${PROJECT_BINARY_DIR};QL_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
               TIMEOUT 300)
endfunction()
