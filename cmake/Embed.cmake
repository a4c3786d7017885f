# crd_embed(TARGET NAMESPACE FILE...): the bytes of files of the source folder, in the program. Each becomes a
# `std::string_view` of that namespace, named after its file in camel case: "event.schema.json" is eventSchemaJson. They are
# declared in "embedded/TARGET.h", which the target's own sources can include, and follow the files at each build.
if(CMAKE_SCRIPT_MODE_FILE)
  file(READ "${FROM}" hex HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${hex}")
  # Lines that a person's tools can cope with.
  string(REGEX REPLACE "('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',)('[^']*',)"
    "\\1\\2\\3\\4\\5\\6\\7\\8\n" bytes "${bytes}")
  file(WRITE "${TO}" "#include \"embedded/${TARGET}.h\"\n
namespace {
constexpr char bytes[] = {\n${bytes}'\\0'};
}
constinit const std::string_view ${NAMESPACE}::${NAME}(bytes, sizeof bytes - 1);\n")
  return()
endif()

set(CRD_EMBED_SCRIPT "${CMAKE_CURRENT_LIST_FILE}")

function(crd_embed target namespace)
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/${target}.embedded")
  set(declarations "")
  foreach(file IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH file NORMALIZE)
    cmake_path(GET file FILENAME stem)
    string(MAKE_C_IDENTIFIER "${stem}" stem)
    string(REPLACE "_" ";" words "${stem}")
    set(name "")
    foreach(word IN LISTS words)
      if(name)
        string(SUBSTRING "${word}" 0 1 first)
        string(SUBSTRING "${word}" 1 -1 rest)
        string(TOUPPER "${first}" first)
        set(word "${first}${rest}")
      endif()
      string(APPEND name "${word}")
    endforeach()
    string(APPEND declarations "extern const std::string_view ${name};\n")
    add_custom_command(OUTPUT "${folder}/${name}.cpp"
      COMMAND "${CMAKE_COMMAND}" "-DFROM=${file}" "-DTO=${folder}/${name}.cpp" "-DTARGET=${target}"
        "-DNAMESPACE=${namespace}" "-DNAME=${name}" -P "${CRD_EMBED_SCRIPT}"
      DEPENDS "${file}" "${CRD_EMBED_SCRIPT}"
      COMMENT "Embedding ${stem}" VERBATIM)
    target_sources(${target} PRIVATE "${folder}/${name}.cpp")
  endforeach()
  file(CONFIGURE OUTPUT "${folder}/embedded/${target}.h" CONTENT
    "#pragma once\n\n#include <string_view>\n\nnamespace @namespace@ {\n@declarations@}\n" @ONLY)
  target_include_directories(${target} PRIVATE "${folder}")
endfunction()
