// g_scandir() for applications with 32-bit times, on targets where the layouts differ.
// Compiled without _TIME_BITS, unlike the rest of the library.
//
// SPDX-License-Identifier: MIT

#include <features.h>

#if defined(_TIME_BITS)
#error "this file is for the layout with 32-bit times"
#endif

// Other C libraries have one layout, which scandir_time64.cc serves.
#if defined(__GLIBC__) && defined(__TIMESIZE)
#if __TIMESIZE == 32 && __GLIBC_PREREQ(2, 34)
#include "sys/scandir_layout.h"

extern "C" int g_scandir(const char* path, GScandirFunc func, void* data) {
  return scan_for_application(path, func, data);
}
#endif
#endif
