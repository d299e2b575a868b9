// g_scandir() for applications with 64-bit times.
//
// SPDX-License-Identifier: MIT

#include "sys/scandir_layout.h"

extern "C" int g_scandir(const char* path, GScandirFunc func, void* data) {
  return scan_for_application(path, func, data);
}

#if !(defined(__USE_TIME_BITS64) && __TIMESIZE == 32)
// There is only one layout: both symbols are this function, so that the list of exported
// symbols is the same everywhere.
extern "C" G_API int g_scandir_time64(const char* path, GScandirFunc func, void* data)
    __attribute__((alias("g_scandir")));
#endif
