# SPDX-License-Identifier: MIT
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(musl_target x86_64)
include("${CMAKE_CURRENT_LIST_DIR}/musl.cmake")
