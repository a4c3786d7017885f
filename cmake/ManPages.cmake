# The manual pages are written in Markdown, which is what people read in the repository, and made for man(1) by lowdown.
find_program(LOWDOWN lowdown REQUIRED)
find_program(GZIP gzip REQUIRED)

# FILE.gz, packed as distributions do. Some target must depend on it.
function(crd_pack FILE)
  add_custom_command(OUTPUT "${FILE}.gz" COMMAND "${GZIP}" -9nkf "${FILE}" DEPENDS "${FILE}" VERBATIM)
endfunction()

set(man_pages)
foreach(page CRDaemon.8 crctl.1)
  set(source "${PROJECT_SOURCE_DIR}/docs/${page}.md")
  set(output "${PROJECT_BINARY_DIR}/man/${page}")
  add_custom_command(OUTPUT "${output}"
    COMMAND "${CMAKE_COMMAND}" "-DLOWDOWN=${LOWDOWN}" "-DPAGE=${source}" "-DOUTPUT=${output}"
      "-DFOOTER=${PROJECT_NAME} ${PROJECT_VERSION}" -P "${PROJECT_SOURCE_DIR}/cmake/ManPage.cmake"
    DEPENDS "${source}" "${PROJECT_SOURCE_DIR}/cmake/ManPage.cmake"
    VERBATIM)
  crd_pack("${output}")
  list(APPEND man_pages "${output}.gz")
  string(REGEX MATCH "[0-9]$" section "${page}")
  install(FILES "${output}.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endforeach()
add_custom_target(man DEPENDS ${man_pages})
