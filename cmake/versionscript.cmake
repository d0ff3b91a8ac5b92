# Makes the linker version script of libtovrel from the export-definition
# file: every named export is global, everything else local. Names that are
# not yet defined in the library are ignored by the linker.
file(STRINGS "${DEF}" lines)
set(names "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[ \t]+(tov[A-Za-z0-9_]+)[ \t]+@[0-9]+")
    string(APPEND names "    ${CMAKE_MATCH_1};\n")
  endif()
endforeach()
file(WRITE "${OUT}.tmp" "{\n  global:\n${names}  local:\n    *;\n};\n")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
