# SPDX-License-Identifier: MIT
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
set(musl_target armhf)
set(musl_binutils arm-linux-gnueabihf-)
include("${CMAKE_CURRENT_LIST_DIR}/musl.cmake")
