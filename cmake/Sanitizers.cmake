# AddressSanitizer + UndefinedBehaviorSanitizer for the whole tree (the module,
# the host simulator and the tests must agree, since the host dlopens the module).
if(QL_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
