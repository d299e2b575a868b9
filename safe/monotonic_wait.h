// Waits that do not depend on the wall clock.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_MONOTONIC_WAIT_H
#define GROUNDWORK_SAFE_MONOTONIC_WAIT_H

#include <cstdint>
#include <ctime>

#include <pthread.h>

namespace groundwork {

// Initialises a condition variable whose timed waits use CLOCK_MONOTONIC, since
// pthread_cond_clockwait() is not available everywhere. Returns 0 or an error number.
int init_monotonic(pthread_cond_t* cond);

// CLOCK_MONOTONIC in nanoseconds.
int64_t monotonic_ns();

// The same time, as such a wait expects it.
timespec monotonic_time(int64_t nanoseconds);

}  // namespace groundwork

#endif
