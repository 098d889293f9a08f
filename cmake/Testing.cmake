# Every test has a time limit (ql_test's cases here, every add_test where it is
# registered), so that a fault that makes one wait forever fails it instead of
# hanging make test and CI. The slowest test takes about
# 10 s in the unoptimised coverage build; the limit leaves room for a loaded
# machine running the suite in parallel.
set(QL_TEST_TIMEOUT 120)

# ql_test(NAME SOURCES... LINK libs... [TIMEOUT seconds]) — one GoogleTest
# executable, its cases registered with CTest one by one, each under
# QL_TEST_TIMEOUT unless TIMEOUT names another limit.
include(GoogleTest)
function(ql_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT ${QL_TEST_TIMEOUT})
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest GTest::gtest_main ql_warnings)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT}
               ENVIRONMENT "QL_BUILD_DIR=${PROJECT_BINARY_DIR};QL_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
endfunction()
