# cmake -DLOWDOWN=PROGRAM -DPAGE=CRDaemon.8.md -DOUTPUT=FILE -DFOOTER=TEXT -P ManPage.cmake: the page for man(1). In the source a
# title stands over the sections; in a manual page the sections are the uppermost headings, and a heading is one line.
get_filename_component(file "${PAGE}" NAME)
string(REGEX MATCH "^(.+)\\.([0-9])\\.md$" matched "${file}")
set(title "${CMAKE_MATCH_1}")
set(section "${CMAKE_MATCH_2}")

file(READ "${PAGE}" text)
string(REGEX REPLACE "^# [^\n]*\n" "" text "${text}")
string(REPLACE "\n## " "\n# " text "${text}")
file(WRITE "${OUTPUT}.md" "${text}")
execute_process(
  COMMAND "${LOWDOWN}" -s -tman --out-no-smarty --nroff-nolinks
    -M "title=${title}" -M "section=${section}" -M "source=${FOOTER}" "${OUTPUT}.md"
  OUTPUT_VARIABLE page COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE "${OUTPUT}.md")
string(REGEX REPLACE "\n\\.S([HS])\n" "\n.S\\1 " page "${page}")
# The first line says that the page has tables.
file(WRITE "${OUTPUT}" "'\\\" t\n${page}")
