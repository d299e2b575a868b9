// The times and sleeping calls as the library has them: of 64 bits, which on 32-bit targets
// are types and functions of their own in the C library. A test program that defines
// LIBRARY_SELECT, LIBRARY_NANOSLEEP and so on gets the library's calls.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_LIBRARY_SLEEP_H
#define GROUNDWORK_TESTS_SUPPORT_LIBRARY_SLEEP_H

#include <cstdint>
#include <ctime>

#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>

#include "support/next_function.h"

#if __SIZEOF_LONG__ == 8 || !defined(__GLIBC__)
// musl's headers know the 64-bit functions alone; it is their symbols that differ.
using LibraryTimeval = timeval;
using LibraryTimespec = timespec;
#define LIBRARY_SELECT select
#define LIBRARY_NANOSLEEP nanosleep
#define LIBRARY_CLOCK_GETTIME clock_gettime
#define LIBRARY_COND_TIMEDWAIT pthread_cond_timedwait
#else
struct LibraryTimeval {
  int64_t tv_sec;
  int64_t tv_usec;
};
struct LibraryTimespec {
  int64_t tv_sec;
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  int32_t padding;
  int32_t tv_nsec;
#else
  int32_t tv_nsec;
  int32_t padding;
#endif
};
#define LIBRARY_SELECT __select64
#define LIBRARY_NANOSLEEP __nanosleep64
#define LIBRARY_CLOCK_GETTIME __clock_gettime64
#define LIBRARY_COND_TIMEDWAIT __pthread_cond_timedwait64
extern "C" int __select64(int, fd_set*, fd_set*, fd_set*, LibraryTimeval*);
extern "C" int __nanosleep64(const LibraryTimespec*, LibraryTimespec*);
extern "C" int __clock_gettime64(clockid_t, LibraryTimespec*) noexcept;
extern "C" int __pthread_cond_timedwait64(pthread_cond_t*, pthread_mutex_t*,
                                          const LibraryTimespec*);
#endif

// The C library's own function of a name that the test program also defines.
#define NEXT_OF(function) test::next_function<decltype(function)>(LIBRARY_NAME(function))

// The symbol of a function that is given or takes a time.
#define LIBRARY_NAME(function) LIBRARY_NAME_EXPANDED(function)
#if defined(__GLIBC__) || __SIZEOF_LONG__ == 8
#define LIBRARY_NAME_EXPANDED(function) #function
#else
#define LIBRARY_NAME_EXPANDED(function) MUSL_##function
#define MUSL_clock_gettime "__clock_gettime64"
#define MUSL_nanosleep "__nanosleep_time64"
#define MUSL_pthread_cond_timedwait "__pthread_cond_timedwait_time64"
#define MUSL_select "__select_time64"
#endif

#endif
