# SPDX-License-Identifier: MIT
# Every exported symbol is listed by hand in <subsystem>/exports.txt, one a line: its name
# and "function" or "data". From these lists come the linker's version script and the
# sorted list that the export test compares with the built library.
function(groundwork_export_map map_variable list_variable)
  set(symbols "")
  foreach(subsystem IN LISTS GROUNDWORK_SUBSYSTEMS)
    set(list "${CMAKE_CURRENT_SOURCE_DIR}/${subsystem}/exports.txt")
    if(EXISTS "${list}")
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
      file(STRINGS "${list}" lines REGEX "^[A-Za-z_]")
      list(APPEND symbols ${lines})
    endif()
  endforeach()
  list(SORT symbols)
  list(JOIN symbols "\n" text)
  set(export_list "${CMAKE_CURRENT_BINARY_DIR}/exports.txt")
  file(CONFIGURE OUTPUT "${export_list}" CONTENT "${text}\n" @ONLY)

  list(TRANSFORM symbols REPLACE " .*" "")
  list(JOIN symbols ";\n    " names)
  set(map "${CMAKE_CURRENT_BINARY_DIR}/groundwork.map")
  file(CONFIGURE OUTPUT "${map}" @ONLY
    CONTENT "GROUNDWORK_1.0 {\n  global:\n    ${names};\n  local:\n    *;\n};\n")
  set(${map_variable} "${map}" PARENT_SCOPE)
  set(${list_variable} "${export_list}" PARENT_SCOPE)
endfunction()
