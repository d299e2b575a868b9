/* SPDX-License-Identifier: MIT */
/**
 * @defgroup sys System figures
 * @ingroup system
 *
 * Figures of the running Linux system, and memory locking.
 *
 * Nothing is kept between calls. Failed argument checks and system failures are logged under the
 * name "g_sys".
 *
 * Threads: any thread. A call is a cancellation point only when it logs.
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
 * Locks all present and future pages of the process into memory, so that no access waits for the
 * disk. Before that it touches 65,536 bytes of the calling thread's stack, so that they are
 * present; the stack must have that much room left.
 *
 * @return the result of mlockall(): 0, or -1 with the reason in `errno`, which is not logged.
 *
 * @par Errors
 * - `EPERM`: the process lacks the privilege.
 * - `ENOMEM`: the pages are more than the limit of the process (`RLIMIT_MEMLOCK`).
 *
 * Threads: any thread; it acts on the whole process.
 *
 * Standard: mlockall(), POSIX.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * if (g_sys_lock_memory() == -1) perror("memory is not locked");
 * @endcode
 */
G_API int g_sys_lock_memory(void);

/**
 * Unlocks all pages of the process, those that g_sys_lock_memory() locked included.
 *
 * @return the result of munlockall(): 0, or -1 with the reason in `errno`, which is not logged.
 *
 * Threads: any thread; it acts on the whole process.
 *
 * Standard: munlockall(), POSIX.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * if (g_sys_lock_memory() == 0) {
 *   // what must not wait for the disk
 *   g_sys_unlock_memory();
 * }
 * @endcode
 */
G_API int g_sys_unlock_memory(void);

/**
 * Returns size and free space of the filesystem that holds a path.
 *
 * @param path      any path on the filesystem; not null.
 * @param total_kb  receives the size in units of 1024 bytes, its low 32 bits; may be null.
 * @param avail_kb  receives the space available to unprivileged users in units of 1024 bytes, its
 *                  low 32 bits; may be null.
 * @return 0; -1, with nothing stored, when `path` is null, when the filesystem cannot be examined,
 *         or, with nothing logged, when it has no blocks or none is available.
 *
 * @par Errors
 * - ``'path' FAILED.``: critical; `path` is null.
 * - ``%s - %s``: warning, with the system's text and the path; statfs() failed.
 *
 * Threads: any thread.
 *
 * @par Notes
 * A full filesystem, with no block available, looks like a failure. Where that matters call
 * statvfs().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * uint32_t total = 0, available = 0;
 * if (g_sys_get_filesystem_usage("/", &total, &available) == 0) {
 *   printf("%u of %u KiB are available\n", (unsigned)available, (unsigned)total);
 * }
 * @endcode
 */
G_API int g_sys_get_filesystem_usage(const char* path, uint32_t* total_kb,
                                     uint32_t* avail_kb);

/**
 * Returns the average load of a processor since the system started, from "/proc/stat".
 *
 * @param cpu  number of the processor; 0 is the first.
 * @return percentage of the time not idle, 0 to 100; -1, with nothing logged, when the file cannot
 *         be read, when no line contains "cpu<cpu>", when fields are missing, when the counters add
 *         up to 0, or when memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Notes
 * - This is not the load of the moment: the kernel's counters only grow, and no sample is kept.
 *   After a week it hardly moves. For the present load take the difference of two readings of
 *   "/proc/stat".
 * - The counters are added in 32 bits: beyond 2^31 ticks in all, the figure means nothing and may
 *   be outside 0 to 100.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int load = g_sys_cpu_load(0);
 * if (load != -1) printf("%d %% since the start\n", load);
 * @endcode
 */
G_API int g_sys_cpu_load(int cpu);

/**
 * Returns the percentage of memory that is not used, from the second line of "/proc/meminfo".
 *
 * @return (total - used) * 100 / total; -1, with nothing logged, when the file cannot be read or
 *         has no such line, when the total is 0, or when memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Notes
 * Only the older form of the file has these figures, "Mem: total used ...". With the newer one,
 * whose second line is "MemFree: N kB", the result is always 100, and a watchdog that takes it for
 * the memory in use always fires. Read "MemAvailable:" instead.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int free_memory = g_sys_mem_use();
 * if (free_memory != -1) printf("%d %%\n", free_memory);
 * @endcode
 */
G_API int g_sys_mem_use(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
