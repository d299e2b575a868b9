# SPDX-License-Identifier: MIT
# Installation: headers, both libraries, pkg-config files and the CMake package. Paths in the
# installed files are relative to them, so a prefix can be moved.
include(CMakePackageConfigHelpers)

list(TRANSFORM GROUNDWORK_PUBLIC_INCLUDES APPEND "/groundwork" OUTPUT_VARIABLE _headers)
install(DIRECTORY ${_headers}
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
install(TARGETS groundwork EXPORT groundwork-shared-targets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime
  NAMELINK_COMPONENT development)
install(TARGETS groundwork_static EXPORT groundwork-static-targets
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
set_target_properties(groundwork_static PROPERTIES EXPORT_NAME static)

set(_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/groundwork")
configure_package_config_file(cmake/groundwork-config.cmake.in
  "${PROJECT_BINARY_DIR}/groundwork-config.cmake" INSTALL_DESTINATION "${_package_dir}")
# No ARCH_INDEPENDENT: a package for one word size is not found by a build for the other.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/groundwork-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/groundwork-config.cmake"
  "${PROJECT_BINARY_DIR}/groundwork-config-version.cmake"
  DESTINATION "${_package_dir}" COMPONENT development)
# A set of its own for each library: some images carry the shared one alone.
foreach(kind IN ITEMS shared static)
  install(EXPORT groundwork-${kind}-targets NAMESPACE groundwork::
    DESTINATION "${_package_dir}" COMPONENT development)
endforeach()

# From the folder of the .pc files back to the prefix. A distribution's copy is never moved, and only
# a plain prefix lets pkg-config see that its folders are searched anyway.
file(RELATIVE_PATH GROUNDWORK_PC_PREFIX
  "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" GROUNDWORK_PC_PREFIX "${GROUNDWORK_PC_PREFIX}")
set(GROUNDWORK_PC_PREFIX "\${pcfiledir}/${GROUNDWORK_PC_PREFIX}")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(GROUNDWORK_PC_PREFIX "/usr")
endif()
foreach(kind IN ITEMS groundwork groundwork-static)
  if(kind STREQUAL "groundwork")
    set(GROUNDWORK_PC_LIBS "-lgroundwork")
  else()
    set(GROUNDWORK_PC_LIBS "-l:libgroundwork.a -pthread")
  endif()
  configure_file(cmake/groundwork.pc.in "${PROJECT_BINARY_DIR}/${kind}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${kind}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
endforeach()

include(InstalledReadme)

install(FILES cmake/groundwork.tsan-supp
  DESTINATION "${CMAKE_INSTALL_DATADIR}/groundwork" COMPONENT development)

# Removes what the last installations from this build folder put in place.
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND "${CMAKE_COMMAND}" -DBUILD_DIR=${PROJECT_BINARY_DIR}
      -P "${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake"
    COMMENT "Removing installed files" VERBATIM)
endif()
