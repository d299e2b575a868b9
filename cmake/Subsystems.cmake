# SPDX-License-Identifier: MIT
# Reads subsystems.txt:
#
#   GROUNDWORK_SUBSYSTEMS       the folders that are built
#   GROUNDWORK_COMPLETE         whether that is all of them
#   GROUNDWORK_PUBLIC_INCLUDES  the folders to search for public headers. Those of a subsystem
#                               that was left out stay; a program that uses one does not link.
set(GROUNDWORK_SUBSYSTEMS "")
set(GROUNDWORK_COMPLETE ON)
set(GROUNDWORK_PUBLIC_INCLUDES "")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  "${CMAKE_CURRENT_LIST_DIR}/subsystems.txt")
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/subsystems.txt" _lines REGEX "^[a-z]")
foreach(_line IN LISTS _lines)
  separate_arguments(_line UNIX_COMMAND "${_line}")
  list(POP_FRONT _line _name _kind)
  if("include" IN_LIST _line)
    list(APPEND GROUNDWORK_PUBLIC_INCLUDES "${CMAKE_CURRENT_SOURCE_DIR}/${_name}/include")
  endif()
  if(_kind STREQUAL "optional")
    string(TOUPPER "GROUNDWORK_${_name}" _switch)
    option(${_switch} "Build the subsystem ${_name}/" ON)
    if(NOT ${_switch})
      set(GROUNDWORK_COMPLETE OFF)
      continue()
    endif()
  endif()
  if(NOT _kind STREQUAL "headers")
    list(APPEND GROUNDWORK_SUBSYSTEMS ${_name})
  endif()
endforeach()
