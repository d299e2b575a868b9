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

/** @name Files
 *
 * A program that writes over a file loses it at a power cut: for a moment the file is empty,
 * and for seconds its content is in memory only. These functions write the new content beside
 * the file, have it on the disk, and then let it take the name in one step.
 *
 * - The new content grows in `.NAME.new` in the directory of the file (a long name is cut).
 *   The name is the library's own: a file of that name, as a power cut may leave one, is
 *   removed.
 * - Meanwhile the directory is locked with flock(), and the next replacement in it waits for
 *   at most 5 seconds, then fails with `EAGAIN`. Who waits longest is not served first. The
 *   directory must be readable and writable; where it cannot be opened or locked, `errno` is
 *   that of the attempt.
 * - Symbolic links stay, and what they lead to is replaced, in its own directory. A link that
 *   leads nowhere: `ENOENT`; links in a circle: `ELOOP`.
 * - The file is a new one under the old name: other hard links keep the old content, a program
 *   that has it open goes on with the old file, and access control lists and extended
 *   attributes are not taken along. A file that is a mount point cannot be replaced (`EBUSY`).
 * - A file may be replaced that is read-only: what counts are the rights to the directory.
 *
 * The results say what a power cut can still do:
 *
 * | result | what holds |
 * |---|---|
 * | 0 | the new content is in place and durable |
 * | 1 | the new content is in place, but the directory could not be synced (`errno` says why): a power cut may bring the old file back, whole |
 * | -1 | `errno` says why; the old file is untouched, and no temporary file is left |
 *
 * A power cut before the return leaves the old file or the new one, whole, and at most one
 * temporary file. Other programs see the old file or the new one at any moment, also when two
 * write it at once.
 */
/** @{ */

/**
 * Copies a file, so that a power cut leaves no half copy: content, mode, and times of access
 * and modification.
 *
 * The content is what reading gives up to the end. The copy gets the mode whatever the umask,
 * but no set-ID bits; a file that is there already keeps its owner, user and group. The time
 * of access is that before reading.
 *
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * if (g_file_duplicate("notes.txt", "backup.txt") == -1) perror("backup.txt");
 * @endcode
 *
 * @param from  path of a regular file, or of a link to one; not null.
 * @param to    path of the copy; not null. Replaced as by g_file_replace(), with its results.
 * @return 0, 1 or -1 as above. -1 with `EINVAL` after a failed check (which is logged as
 *         critical), when both are the same file, when `from` is the temporary file of `to`,
 *         or when one of them is neither a regular file nor a directory; with `EISDIR` for a
 *         directory; with `EPERM` when the mode or the owner cannot be had. An error while
 *         reading is -1, too: no short copy looks whole.
 *
 * Threads: no shared state; any number at once. Cancellation waits until it returns.
 */
G_API int g_file_duplicate(const char *from, const char *to);

/**
 * Replaces what a file holds, or makes the file, so that a power cut leaves the old content or
 * the new one.
 *
 * An existing file keeps its mode and its owner, user and group. A new one gets 0644 less the
 * umask.
 *
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * const char text[] = "speed=3\n";
 * if (g_file_replace("pump.conf", text, sizeof text - 1) == -1) perror("pump.conf");
 * @endcode
 *
 * @param path  of a regular file, of a link to one, or of none yet; not null.
 * @param buf   the new content; may be null when `len` is 0. Stays the caller's.
 * @param len   its bytes, not negative.
 * @return 0, 1 or -1 as above. -1 with `EINVAL` after a failed check (which is logged as
 *         critical) or for anything that is neither a regular file nor a directory; with
 *         `EISDIR` for a directory; with `EPERM` when mode and owner cannot be kept; with
 *         `EFAULT` when no block of memory can have so many bytes; else with what the system
 *         says, as `ENOSPC`. A failed sync is not tried again.
 *
 * Threads: no shared state; any number at once. Cancellation waits until it returns.
 */
G_API int g_file_replace(const char *path, const void *buf, int64_t len);
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
