# SPDX-License-Identifier: MIT
set(CMAKE_SYSTEM_PROCESSOR i686)
set(musl_target i386)
include("${CMAKE_CURRENT_LIST_DIR}/musl.cmake")
