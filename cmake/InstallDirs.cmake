# Where things go when installed (GNUInstallDirs; the default prefix is
# /usr/local). The module lives in a folder of its own under lib/, the same on
# every prefix and architecture, and pxhost finds it relative to its own
# executable, so an installed copy never loads a build tree's module and a
# moved prefix still works. QL_MODULE_RELDIR is that relative path, compiled
# into pxhost; it is derived here and nowhere else.
include(GNUInstallDirs)
set(QL_INSTALL_MODULEDIR "lib/qlformat" CACHE STRING "Folder of the plug-in module, relative to the prefix")
cmake_path(RELATIVE_PATH QL_INSTALL_MODULEDIR BASE_DIRECTORY ${CMAKE_INSTALL_BINDIR} OUTPUT_VARIABLE QL_MODULE_RELDIR)
