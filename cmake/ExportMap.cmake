# SPDX-License-Identifier: MIT
# Every exported symbol is listed by hand in <subsystem>/exports.txt, one a line: its name
# and "function" or "data". From these lists come the linker's version script and the
# sorted list that the export test compares with the built library.
#
# Inside the library a call of an exported function goes straight to it: no entry of the
# procedure linkage table, no relocation. What is left to the loader stands in the dynamic
# list: data, which a program without position independent code keeps in itself, and
# functions that the library knows by their address, which for such a program lies in it.
set(GROUNDWORK_FUNCTIONS_KNOWN_BY_ADDRESS
  g_hash_direct g_hash_direct_equal g_hash_int g_hash_int_equal g_hash_str g_hash_str_equal)

function(groundwork_export_map map_variable dynamic_list_variable list_variable)
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

  set(dynamic_symbols ${symbols})
  list(FILTER dynamic_symbols INCLUDE REGEX " data$")
  list(TRANSFORM dynamic_symbols REPLACE " .*" "")
  list(APPEND dynamic_symbols ${GROUNDWORK_FUNCTIONS_KNOWN_BY_ADDRESS})
  list(JOIN dynamic_symbols ";\n  " names)
  set(dynamic_list "${CMAKE_CURRENT_BINARY_DIR}/groundwork.dynamic")
  file(CONFIGURE OUTPUT "${dynamic_list}" CONTENT "{\n  ${names};\n};\n" @ONLY)

  list(TRANSFORM symbols REPLACE " .*" "")
  list(JOIN symbols ";\n    " names)
  set(map "${CMAKE_CURRENT_BINARY_DIR}/groundwork.map")
  file(CONFIGURE OUTPUT "${map}" @ONLY
    CONTENT "GROUNDWORK_1.0 {\n  global:\n    ${names};\n  local:\n    *;\n};\n")
  set(${map_variable} "${map}" PARENT_SCOPE)
  set(${dynamic_list_variable} "${dynamic_list}" PARENT_SCOPE)
  set(${list_variable} "${export_list}" PARENT_SCOPE)
endfunction()
