# SPDX-License-Identifier: MIT
# A bill of materials with each installation. Included last, after everything that is installed.
set(GROUNDWORK_DEVELOPERS "The groundwork developers")
set(GROUNDWORK_COPYRIGHT "2026 ${GROUNDWORK_DEVELOPERS}")
configure_file(cmake/Sbom.cmake.in "${PROJECT_BINARY_DIR}/WriteSbom.cmake" @ONLY)
install(SCRIPT "${PROJECT_BINARY_DIR}/WriteSbom.cmake" ALL_COMPONENTS)
