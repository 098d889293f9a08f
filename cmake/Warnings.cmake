# Strict warnings for project code only; third-party headers come in as SYSTEM.
add_library(ql_warnings INTERFACE)
target_compile_options(ql_warnings INTERFACE -Wall -Wextra -Werror)
# GCC 12 at -O3 reports impossible overlaps inside its own std::string
# (GCC bug 105651); the warning says nothing about project code there.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(ql_warnings INTERFACE -Wno-restrict)
endif()
