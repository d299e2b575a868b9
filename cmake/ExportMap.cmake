# SPDX-License-Identifier: MIT
# Every exported symbol is listed by hand in <subsystem>/exports.txt, one a line: its name
# and "function" or "data". From these lists come the linker's version script and the
# sorted list, with each symbol's version node, that the export test compares with the built
# library. A node never gets another symbol once it was released: safe/ has the next one.
#
# Inside the library a call of an exported function goes straight to it: no entry of the
# procedure linkage table, no relocation. What is left to the loader is in the dynamic list:
# data, which a program without position independent code copies into itself, and functions
# whose address the library takes, which for such a program is an address in the program.
set(GROUNDWORK_FUNCTIONS_KNOWN_BY_ADDRESS
  g_hash_direct g_hash_direct_equal g_hash_int g_hash_int_equal g_hash_str g_hash_str_equal)

function(groundwork_export_map map_variable dynamic_list_variable list_variable)
  set(nodes GROUNDWORK_1.0)
  foreach(subsystem IN LISTS GROUNDWORK_SUBSYSTEMS)
    set(node GROUNDWORK_1.0)
    if(subsystem STREQUAL "safe")
      set(node GROUNDWORK_1.1)
      list(APPEND nodes ${node})
    endif()
    set(list "${CMAKE_CURRENT_SOURCE_DIR}/${subsystem}/exports.txt")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
    file(STRINGS "${list}" lines REGEX "^[A-Za-z_]")
    if(NOT GROUNDWORK_CONF)
      # What safe/ has for confs goes with them.
      list(FILTER lines EXCLUDE REGEX "^g_conf_")
    endif()
    list(APPEND symbols_${node} ${lines})
  endforeach()

  set(symbols "")
  set(map_text "")
  set(parent "")
  foreach(node IN LISTS nodes)
    list(SORT symbols_${node})
    set(names ${symbols_${node}})
    list(TRANSFORM names REPLACE " .*" "")
    list(JOIN names ";\n    " names)
    string(APPEND map_text "${node} {\n  global:\n    ${names};\n")
    if(NOT parent)
      string(APPEND map_text "  local:\n    *;\n")
    endif()
    string(APPEND map_text "}${parent};\n")
    set(parent " ${node}")
    list(TRANSFORM symbols_${node} APPEND " ${node}")
    list(APPEND symbols ${symbols_${node}})
  endforeach()
  set(map "${CMAKE_CURRENT_BINARY_DIR}/groundwork.map")
  file(CONFIGURE OUTPUT "${map}" @ONLY CONTENT "${map_text}")

  list(SORT symbols)
  list(JOIN symbols "\n" text)
  set(export_list "${CMAKE_CURRENT_BINARY_DIR}/exports.txt")
  file(CONFIGURE OUTPUT "${export_list}" CONTENT "${text}\n" @ONLY)

  set(dynamic_symbols ${symbols})
  list(FILTER dynamic_symbols INCLUDE REGEX " data ")
  list(TRANSFORM dynamic_symbols REPLACE " .*" "")
  list(APPEND dynamic_symbols ${GROUNDWORK_FUNCTIONS_KNOWN_BY_ADDRESS})
  list(JOIN dynamic_symbols ";\n  " names)
  set(dynamic_list "${CMAKE_CURRENT_BINARY_DIR}/groundwork.dynamic")
  file(CONFIGURE OUTPUT "${dynamic_list}" CONTENT "{\n  ${names};\n};\n" @ONLY)

  set(${map_variable} "${map}" PARENT_SCOPE)
  set(${dynamic_list_variable} "${dynamic_list}" PARENT_SCOPE)
  set(${list_variable} "${export_list}" PARENT_SCOPE)
endfunction()
