# What is installed, and where. The rules of the host kit stand in hostkit/.
#
#   libexec/crdaemon/   CRDaemon, CRDaemon-http, crctl: daemon and crctl look for the helper in the folder of their own file
#   bin/crctl           a link to it, which the kernel resolves before crctl looks
#   lib, include        the host kit, its pkg-config file and CMake package, which tell hosts where the daemon is
#   share               manual pages, completion, documents, examples
#
# All of it can be moved as a whole. "product" builds what is installed and no more.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME daemon)
include(cmake/ManPages.cmake)

set(programs CRDaemon CRDaemon-http crctl)
add_dependencies(product ${programs} crhost man)

install(TARGETS ${programs} DESTINATION "${CRDAEMON_INSTALL_PROGRAMS}")
file(RELATIVE_PATH toPrograms "/${CMAKE_INSTALL_BINDIR}" "/${CRDAEMON_INSTALL_PROGRAMS}")
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/link")
file(CREATE_LINK "${toPrograms}/crctl" "${PROJECT_BINARY_DIR}/link/crctl" SYMBOLIC)
install(FILES "${PROJECT_BINARY_DIR}/link/crctl" DESTINATION "${CMAKE_INSTALL_BINDIR}")

install(FILES tools/crctl/crctl.bash DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME crctl)

set(documents "${CMAKE_INSTALL_DATADIR}/doc/crdaemon")
file(GLOB texts CONFIGURE_DEPENDS docs/event*)
install(FILES docs/hostkit.md docs/integration.md docs/linux.md docs/on-disk-files.md ${texts} DESTINATION "${documents}")
install(DIRECTORY examples/c examples/cpp DESTINATION "${documents}/examples")
