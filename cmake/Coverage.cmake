# Line and branch coverage with GCC's instrumentation (gcovr reads it). The
# module, the host and the tests are all instrumented; every process, including
# the ones tests start and the module they load, adds its counts on exit (or,
# leaving by _exit, just before).
if(QL_COVERAGE)
  add_compile_options(--coverage -O0 -g)
  add_compile_definitions(QL_COVERAGE  # common/coverage_counts.h
                          QL_COVERAGE_COUNTS_DIR="${PROJECT_BINARY_DIR}")
  add_link_options(--coverage)
endif()
