# crd_layer(NAME SOURCES ... [USES ...] [LIBRARIES ...]): a static library of the project, which may use the layers named and
# nothing else of it. Static libraries alone would let a breach link, so each layer is also linked whole with what it may use
# and a machine: an operation of an upper layer is then an undefined symbol. CODEC and MACHINE come last, since every layer
# may use the platform's headers.
function(crd_layer name)
  cmake_parse_arguments(LAYER "NO_CHECK" "" "SOURCES;USES;LIBRARIES" ${ARGN})
  add_library(${name} STATIC ${LAYER_SOURCES})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PUBLIC ${LAYER_USES} ${LAYER_LIBRARIES} PRIVATE crd_warnings)
  if(isLinux AND NOT LAYER_NO_CHECK AND NOT CMAKE_CXX_FLAGS MATCHES "fsanitize")
    file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/${name}_check.cpp" "")
    add_library(${name}_check SHARED "${CMAKE_CURRENT_BINARY_DIR}/${name}_check.cpp")
    target_link_libraries(${name}_check PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,${name}>" ${LAYER_USES} crd_machine crd_codec)
    target_link_options(${name}_check PRIVATE LINKER:--no-undefined)
    set_target_properties(${name}_check PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/checks")
  endif()
endfunction()
