# Run by CPack after it made the Debian package (CPACK_POST_BUILD_SCRIPTS).
# CPack gives a package with a shared object under /usr/lib maintainer
# scripts that run ldconfig. The modules in /usr/lib/qlformat are loaded by
# path, never found through the linker's cache, so the scripts only cost time
# and draw a packaging warning: the package is rebuilt without them.
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT deb MATCHES "\\.deb$")
    continue()
  endif()
  set(tree "${deb}.tree")
  file(REMOVE_RECURSE "${tree}")
  execute_process(COMMAND dpkg-deb -R "${deb}" "${tree}" COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE "${tree}/DEBIAN/postinst" "${tree}/DEBIAN/postrm")
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz -b "${tree}" "${deb}"
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE "${tree}")
endforeach()
