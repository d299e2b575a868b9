// Waits that the wall clock has no part in.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_MONOTONIC_WAIT_H
#define GROUNDWORK_SAFE_MONOTONIC_WAIT_H

#include <cstdint>
#include <ctime>

#include <pthread.h>

namespace groundwork {

// Makes a condition whose timed waits go by CLOCK_MONOTONIC: pthread_cond_clockwait() is
// not everywhere. Returns 0 or an error number.
int init_monotonic(pthread_cond_t* cond);

// CLOCK_MONOTONIC in nanoseconds.
int64_t monotonic_ns();

// The same instant as such a wait takes it.
timespec monotonic_time(int64_t nanoseconds);

}  // namespace groundwork

#endif
