/* SPDX-License-Identifier: MIT */
/**
 * @defgroup safe Safe counterparts
 *
 * What new programs use where a kept behaviour can lose data, wait for ever or reach too far:
 * saves that survive a power cut and keep comments, waits that end, removal that stays inside.
 *
 * Nothing here changes what the other functions do. <groundwork/groundwork.h> does not include
 * this header, and a library that was built with `GROUNDWORK_SAFE` off does not have its
 * functions.
 *
 * A failed argument check is logged as critical and sets `errno` to `EINVAL`. Nothing else is
 * logged: the caller has the result and `errno`. Cancelling a thread leaves none of these
 * functions half done. Sizes, times and offsets are 64-bit on every target.
 *
 * @{
 */
#ifndef GROUNDWORK_SAFE_H
#define GROUNDWORK_SAFE_H

#include <stdint.h>

#include <groundwork/conf.h>
#include <groundwork/export.h>
#include <groundwork/hash.h>
#include <groundwork/thread.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @name Files */
/** @{ */
/** @} */

/** @name Directories */
/** @{ */
/** @} */

/** @name Configuration */
/** @{ */
/** @} */

/** @name Threads and time */
/** @{ */

/**
 * Reads the monotonic clock, CLOCK_MONOTONIC of POSIX.
 *
 * Nobody sets it, so differences measure time; it stands still while the machine sleeps. It
 * does not wrap in a process's life.
 *
 * @return milliseconds since an unspecified point, usually the start of the system.
 *
 * Threads: any thread at any time.
 */
G_API int64_t g_monotonic_ms(void);
/** @} */

/** @name Containers */
/** @{ */
/** @} */

/** @name HTTP */
/** @{ */
/** @} */

#ifdef __cplusplus
}
#endif

/** @} */

#endif
