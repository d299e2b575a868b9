# SPDX-License-Identifier: MIT
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(musl_target mipsel)
include("${CMAKE_CURRENT_LIST_DIR}/musl.cmake")
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-mipsel")
