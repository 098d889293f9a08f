# AddressSanitizer + UndefinedBehaviorSanitizer for the whole tree (the module,
# the host simulator and the tests must agree, since the host dlopens the module).
if(QL_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
  # Internal invariants (common/invariant.h) are checked where the sanitizers run.
  add_compile_definitions(QL_CHECK_INVARIANTS)
endif()

# Fuzzing builds instrument every library for coverage, not only the fuzz
# targets themselves.
if(QL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
