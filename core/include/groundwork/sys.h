/* SPDX-License-Identifier: MIT */
/**
 * @defgroup sys System figures
 * @ingroup system
 *
 * Figures of the running Linux system, and memory locking.
 *
 * Nothing is kept between calls. Failed argument checks and system failures are logged
 * under the name "g_sys".
 *
 * Threads: safe, and no call is a cancellation point but for what it logs.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * uint32_t total = 0, available = 0;
 * if (g_sys_get_filesystem_usage("/", &total, &available) == 0) {
 *   printf("%u of %u KiB are available\n", (unsigned)available, (unsigned)total);
 * }
 * printf("the first processor was busy %d%% of the time\n", g_sys_cpu_load(0));
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_SYS_H
#define GROUNDWORK_SYS_H

#include <stdint.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Locks all present and future pages of the process into memory. Before that it touches 65,536
 * bytes of the calling thread's stack, so that they are present: the stack must have that much
 * room.
 *
 * @return the result of mlockall(): 0, or -1 with errno set. Nothing is logged.
 */
G_API int g_sys_lock_memory(void);

/** Gives up the locks of g_sys_lock_memory(). @return the result of munlockall(). Nothing is
 *  logged. */
G_API int g_sys_unlock_memory(void);

/**
 * Tells size and free space of the filesystem that holds a path.
 *
 * @warning A full filesystem, with no block available, reports failure.
 *
 * @param path      null fails the check "path".
 * @param total_kb  receives the size in units of 1024 bytes, its low 32 bits; may be null.
 * @param avail_kb  receives the space available to unprivileged users, likewise; may be
 *                  null.
 * @return 0; -1, with nothing stored, on the failed check, when the filesystem cannot be
 *         asked (logged as a warning), and, without a message, when it has no blocks
 *         or none is available.
 */
G_API int g_sys_get_filesystem_usage(const char* path, uint32_t* total_kb,
                                     uint32_t* avail_kb);

/**
 * Tells the average load of a processor since the system started, from "/proc/stat". Not the load
 * of the moment: the kernel's counters only grow, and no sample is kept.
 *
 * @param cpu  0 for the first processor.
 * @return percent of the time not idle, 0 to 100; -1 when the file cannot be read, no line
 *         contains "cpu<cpu>", fields are missing, the counters add up to 0, or memory is
 *         exhausted. Counters are added in 32 bits: beyond 2^31 ticks in all the figure
 *         means nothing and may lie outside 0 to 100.
 */
G_API int g_sys_cpu_load(int cpu);

/**
 * Tells the percentage of memory that is not used, from the second line of "/proc/meminfo".
 *
 * @warning Only for the older form of that file, whose second line is "Mem:  total used
 * ...". With the newer one, "MemFree: N kB", the result is 100.
 *
 * @return (total - used) * 100 / total; -1 when the file cannot be read or has no such
 *         line, the total is 0, or memory is exhausted.
 */
G_API int g_sys_mem_use(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
