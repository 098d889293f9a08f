# `make package`: a Debian package made by CPack from the install rules. Its
# dependencies are computed by dpkg-shlibdeps from the installed binaries.
# The package installs under /usr: the desktop's thumbnail sandbox shows only
# /usr, and shared-mime-info's dpkg trigger watches /usr/share/mime/packages.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qlformat)
set(CPACK_PACKAGE_VENDOR "qlformat developers")
set(CPACK_PACKAGE_CONTACT "qlformat developers <qlformat@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Vector and swatch file plug-in for Pixmere, with desktop thumbnails")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "pxhost runs the qlformat plug-in outside the Pixmere host: previews of PostScript\n"
  "and EPS files from their embedded thumbnails, swatch exchange files as colour\n"
  "chips, palette export, and a freedesktop thumbnailer for file managers.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
