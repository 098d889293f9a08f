# Strict warnings for project code only; third-party headers come in as SYSTEM.
add_library(ql_warnings INTERFACE)
target_compile_options(ql_warnings INTERFACE -Wall -Wextra -Werror)
