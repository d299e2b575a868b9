# SPDX-License-Identifier: MIT
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel)
set(musl_target mipsel)
set(musl_binutils mipsel-linux-gnu-)
include("${CMAKE_CURRENT_LIST_DIR}/musl.cmake")
