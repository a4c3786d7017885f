# The Debian package of all that is installed; script/package makes it. Its libraries go to /usr/lib itself, so that a package and a
# prefix of one's own have the same folders below them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME crdaemon)
set(CPACK_PACKAGE_VENDOR "CRDaemon")
set(CPACK_PACKAGE_CONTACT "CRDaemon maintainers <crdaemon@malvex.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "watches applications and reports their crashes")
set(CPACK_PACKAGE_DESCRIPTION
"CRDaemon runs beside a desktop application, watches it, and turns its
abnormal end into a crash report: it finds the report, queues one event and
posts it over HTTPS, and starts a crash reporter.
.
This package has the daemon, crctl, which says why no report arrives, and the
host kit that applications are built with.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libxcb1, libxcb-res0")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
