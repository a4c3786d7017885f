# The Debian packages of all that is installed; script/package makes them: crdaemon, and the host kit's library and what hosts are built
# with. Their libraries go to /usr/lib itself, so that a package and a prefix of one's own have the same folders below them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME crdaemon)
set(CPACK_PACKAGE_VENDOR "CRDaemon")
set(CPACK_PACKAGE_CONTACT "CRDaemon maintainers <crdaemon@malvex.example>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL daemon hostkit development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_COMPONENT_DAEMON_DESCRIPTION "watches applications and reports their crashes
CRDaemon runs beside a desktop application, watches it, and turns its
abnormal end into a crash report: it finds the report, queues one event and
posts it over HTTPS, and starts a crash reporter.
.
This package has the daemon, and crctl, which says why no report arrives.")
set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME crdaemon)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_DAEMON_PACKAGE_RECOMMENDS "libxcb1, libxcb-res0")

set(CPACK_COMPONENT_HOSTKIT_DESCRIPTION "library of applications that CRDaemon watches
It starts the daemon, announces normal ends, and writes the report of the
signal that ends the application.")
set(CPACK_DEBIAN_HOSTKIT_PACKAGE_NAME libcrhost1)
set(CPACK_DEBIAN_HOSTKIT_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_HOSTKIT_PACKAGE_RECOMMENDS crdaemon)
set(CPACK_DEBIAN_HOSTKIT_PACKAGE_CONTROL_EXTRA
  "${PROJECT_SOURCE_DIR}/packaging/shlibs;${PROJECT_SOURCE_DIR}/packaging/triggers")

set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "what applications that CRDaemon watches are built with
The headers, pkg-config file and CMake package of libcrhost1. They tell
where the daemon is.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libcrhost-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libcrhost1 (= ${PROJECT_VERSION}), crdaemon (= ${PROJECT_VERSION})")

string(TIMESTAMP date "%a, %d %b %Y 00:00:00 +0000" UTC)
configure_file(packaging/changelog.in packaging/changelog @ONLY)
set(changelog "${PROJECT_BINARY_DIR}/packaging/changelog")
crd_pack("${changelog}")
add_custom_target(changelog DEPENDS "${changelog}.gz")
add_dependencies(product changelog)
foreach(pair daemon=crdaemon hostkit=libcrhost1 development=libcrhost-dev)
  string(REPLACE "=" ";" pair "${pair}")
  list(POP_FRONT pair component package)
  install(FILES "${changelog}.gz" packaging/copyright DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}"
    COMPONENT "${component}")
endforeach()
include(CPack)
