# `make package`: a Debian package made by CPack from the install rules. Its
# dependencies are computed by dpkg-shlibdeps from the installed binaries.
# The package installs under /usr: the desktop's thumbnail sandbox shows only
# /usr, and shared-mime-info's dpkg trigger watches /usr/share/mime/packages.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qlformat)
set(CPACK_PACKAGE_VENDOR "qlformat developers")
set(CPACK_PACKAGE_CONTACT "qlformat maintainers <maintainers@qlformat.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Vector and swatch file plug-in for Pixmere, with desktop thumbnails")
# Lines of the long description stay within 80 columns (with the leading
# space dpkg adds).
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "pxhost runs the qlformat plug-in outside the Pixmere host: previews of\n"
  "PostScript and EPS files from their embedded thumbnails, swatch exchange\n"
  "files as colour chips, palette export, and a freedesktop thumbnailer for\n"
  "file managers.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/DebWithoutLdconfig.cmake)
include(CPack)
