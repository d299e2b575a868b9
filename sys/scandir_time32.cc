// g_scandir() for applications with 32-bit times, on the targets where these differ.
// Compiled without _TIME_BITS, unlike the rest of the library.
//
// SPDX-License-Identifier: MIT

#include <features.h>

#if defined(_TIME_BITS)
#error "this source is for the layout with 32-bit times"
#endif

#if defined(__TIMESIZE) && __TIMESIZE == 32 && __GLIBC_PREREQ(2, 34)
#include "sys/scandir_layout.h"
#endif
