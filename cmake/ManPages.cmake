# The manual pages are written in Markdown, which is what people read in the repository, and made for man(1) by lowdown.
find_program(LOWDOWN lowdown REQUIRED)
find_program(GZIP gzip REQUIRED)

# The file FILE packed as distributions do, as a part of "man"; sets VARIABLE to its path.
function(crd_pack FILE VARIABLE)
  add_custom_command(OUTPUT "${FILE}.gz" COMMAND "${GZIP}" -9nkf "${FILE}" DEPENDS "${FILE}" VERBATIM)
  get_filename_component(name "${FILE}" NAME)
  add_custom_target("pack-${name}" DEPENDS "${FILE}.gz")
  add_dependencies(product "pack-${name}")
  set("${VARIABLE}" "${FILE}.gz" PARENT_SCOPE)
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
  list(APPEND man_pages "${output}")
  string(REGEX MATCH "[0-9]$" section "${page}")
  crd_pack("${output}" packed)
  install(FILES "${packed}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endforeach()
add_custom_target(man DEPENDS ${man_pages})
