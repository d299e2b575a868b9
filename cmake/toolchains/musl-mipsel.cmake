# SPDX-License-Identifier: MIT
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(musl_target mipsel)
include("${CMAKE_CURRENT_LIST_DIR}/musl.cmake")
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-mipsel")
# The compiler has another name than those of its tools.
foreach(tool AR RANLIB NM OBJCOPY OBJDUMP READELF STRIP)
  string(TOLOWER ${tool} name)
  set(CMAKE_${tool} "mipsel-linux-gnu-${name}")
endforeach()
