/* SPDX-License-Identifier: MIT */
/**
 * @defgroup safe Safe counterparts
 *
 * What new programs use where a kept behaviour can lose data, wait without limit or reach too far:
 * saves that survive a power cut and keep comments, waits that end, removal that stays inside its
 * tree.
 *
 * Nothing here changes what the other functions do. <groundwork/groundwork.h> does not include this
 * header, and a library that was built with `GROUNDWORK_SAFE` off does not have its functions.
 *
 * A failed argument check is logged as critical and sets `errno` to `EINVAL`. Nothing else is
 * logged: the caller has the result and `errno`. Cancelling a thread leaves none of these functions
 * half done. Sizes, times and offsets are 64-bit on every target.
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

/**
 * @name Files
 *
 * A program that writes over a file loses it at a power cut: for a moment the file is empty, and
 * for seconds its content is in memory only. These functions write the new content to a temporary
 * file, sync it to the disk, and then rename it over the old file in one step.
 *
 * - The temporary file is `.NAME.new` in the directory of the file (a long name is cut). That name
 *   is reserved for the library: a file of that name, which a power cut may leave behind, is
 *   removed.
 * - During the replacement the directory is locked with flock(). The next replacement in it waits
 *   for at most 5 seconds, then fails with `EAGAIN`. Waiters are not served in order. The directory
 *   must be readable and writable; if it cannot be opened or locked, `errno` is that of the
 *   attempt.
 * - Symbolic links stay, and the file that they lead to is replaced, in its own directory. A link
 *   that leads nowhere gives `ENOENT`, links in a circle give `ELOOP`.
 * - The file is a new one under the old name: other hard links keep the old content, a program that
 *   has it open goes on with the old file, and access control lists and extended attributes are
 *   lost. Without its list a file's group may do what the list's mask allowed. A file that is a
 *   mount point cannot be replaced (`EBUSY`).
 * - A read-only file can be replaced: the permissions of the directory decide.
 *
 * The results say what a power cut can still do:
 *
 * | result | what holds |
 * |---|---|
 * | 0 | the new content is in place and durable |
 * | 1 | the new content is in place, but the directory could not be synced (`errno` is the reason): a power cut may bring the old file back, whole |
 * | -1 | failed, with the reason in `errno`; the old file is untouched, and no temporary file is left |
 *
 * A power cut before the return leaves the old file or the new one, whole, and at most one
 * temporary file. At any moment other programs see either the old file or the new one, even if two
 * programs write it at the same time.
 */
/** @{ */

/**
 * Copies a file so that a power cut leaves no incomplete copy: content, mode, and times of access
 * and modification.
 *
 * The content is read up to the end of the file. The copy gets the mode of the original whatever
 * the umask, but no set-ID bits. A file that is already there keeps its owner, user and group. The
 * time of access is the one before reading.
 *
 * @param from  path of a regular file, or of a link to one; not null.
 * @param to    path of the copy; not null. An existing file is replaced.
 * @return 0 when the copy is in place and durable. 1 when it is in place but its directory could
 *         not be synced, with the reason in `errno`: a power cut may undo it. -1 on failure, with
 *         the reason in `errno`; what was at `to` is untouched.
 *
 * @par Errors
 * `errno` is one of these, or what a system call set:
 * - `EINVAL`: `from` or `to` is null (``'from != NULL' FAILED.`` or ``'to != NULL' FAILED.`` is
 *   logged as critical); both are the same file; `from` is the temporary file of `to`; or one of
 *   them is neither a regular file nor a directory.
 * - `EISDIR`: one of them, or what has the name of the temporary file, is a directory.
 * - `ENOENT`: there is no file `from`, or `to` is a link that leads nowhere.
 * - `ELOOP`: links in a circle.
 * - `EPERM`: the mode or the owner cannot be set.
 * - `EAGAIN`: another replacement in the same directory took longer than 5 seconds, or the path
 *   kept changing.
 * - `EBUSY`: `to` is a mount point.
 * - `ENOSPC`: the device is full.
 * - `EIO`: reading, writing or syncing failed.
 *
 * Threads: no shared state; any number of calls at the same time. Cancellation waits until the call
 * returns.
 *
 * @since 1.1
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * if (g_file_duplicate("notes.txt", "backup.txt") == -1) perror("backup.txt");
 * @endcode
 */
G_API int g_file_duplicate(const char* from, const char* to);

/**
 * Replaces the content of a file so that a power cut leaves the old content or the new one. A
 * missing file is created.
 *
 * An existing file keeps its mode and its owner, user and group. A new one gets permissions 0644
 * less the umask.
 *
 * @param path  path of a regular file, of a link to one, or of no file yet; not null.
 * @param buf   the new content, `len` bytes; stays the caller's. May be null when `len` is 0.
 * @param len   size of the content in bytes, not negative.
 * @return 0 when the new content is in place and durable. 1 when it is in place but its directory
 *         could not be synced, with the reason in `errno`: a power cut may bring the old file back,
 *         whole. -1 on failure, with the reason in `errno`; the old file is untouched.
 *
 * @par Errors
 * `errno` is one of these, or what a system call set:
 * - `EINVAL`: a failed check (``'path != NULL' FAILED.``, ``'len >= 0' FAILED.`` or
 *   ``'(buf != NULL) || (len == 0)' FAILED.`` is logged as critical), or `path` is neither a
 *   regular file nor a directory.
 * - `EISDIR`: `path`, or what has the name of the temporary file, is a directory.
 * - `ENOENT`: the directory does not exist, or `path` is a link that leads nowhere.
 * - `ELOOP`: links in a circle.
 * - `EPERM`: the mode or the owner of the old file cannot be kept.
 * - `EFAULT`: `len` is more than the address space can hold.
 * - `EAGAIN`: another replacement in the same directory took longer than 5 seconds, or the path
 *   kept changing.
 * - `EBUSY`: `path` is a mount point.
 * - `ENOSPC`: the device is full.
 * - `EIO`: writing or syncing failed. A failed sync is not retried.
 *
 * Threads: no shared state; any number of calls at the same time. Cancellation waits until the call
 * returns.
 *
 * @since 1.1
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * const char text[] = "speed=3\n";
 * if (g_file_replace("pump.conf", text, sizeof text - 1) == -1) perror("pump.conf");
 * @endcode
 */
G_API int g_file_replace(const char* path, const void* buf, int64_t len);
/** @} */

/**
 * @name Directories
 *
 * The only limit on the length of a path is the system's: 4095 bytes in `path`, and none for what
 * is inside the tree.
 */
/** @{ */

/**
 * Creates a directory and all missing parents.
 *
 * @param path  path of the directory; not null. A link to a directory counts as one.
 * @param mode  permissions of the new directories, as for mkdir(): less the umask, without set-ID
 *              bits. Parents also get write and search permission for their owner, whatever the
 *              umask.
 * @return 0, also if the directory exists already, whatever its permissions. -1 on failure, with
 *         the reason in `errno`; parents created before the failure stay.
 *
 * @par Errors
 * `errno` is one of these, or what a system call set:
 * - `EINVAL`: `path` is null (``'path != NULL' FAILED.`` is logged as critical).
 * - `ENOTDIR`: a component, the last one included, exists and is not a directory, for example a
 *   dangling link.
 * - `ENOENT`: `path` is empty.
 * - `ENOMEM`: memory is exhausted.
 * - `EACCES`: a parent may not be written or searched.
 *
 * Threads: no shared state; any number of calls at the same time, even for the same directory.
 *
 * @since 1.1
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * if (g_dir_make("var/lib/waterworks", 0750) == -1) perror("var/lib/waterworks");
 * @endcode
 */
G_API int g_dir_make(const char* path, unsigned mode);

/**
 * Removes a tree or a file, and nothing outside it.
 *
 * A symbolic link is removed and never followed, neither `path` itself nor one in the tree, even if
 * a directory is replaced by a link during the call. Mount points in the tree stay, with what is
 * mounted on them and all directories above them. After a failure the rest of the tree is still
 * removed.
 *
 * Whatever the tree, the call needs up to 10 descriptors, the C library's buffers for 8 open
 * directories, and some 16 bytes of memory for each level of depth and for each subdirectory that
 * cannot be removed.
 *
 * @param path  path of the tree or file; not null. Links among its leading components are followed.
 * @return 0 when everything is gone. -1 when something is left, with the reason of the first
 *         failure in `errno`.
 *
 * @par Errors
 * `errno` is one of these, or what a system call set:
 * - `EINVAL`: `path` is null (``'path != NULL' FAILED.`` is logged as critical),
 *   "" or "/", or its last component is "." or "..".
 * - `ENOENT`: nothing has that name.
 * - `ENOTDIR`: a file or a link with a "/" at its end.
 * - `EXDEV`: `path` is a mount point or the tree contains one.
 * - `ESTALE`: a directory was moved elsewhere during the walk, and the way back was lost.
 * - `ENOMEM`: memory is exhausted.
 * - `EACCES`: a directory may not be read, written or searched.
 *
 * Threads: no shared state; any number of calls at the same time. Cancellation waits until the call
 * returns.
 *
 * @since 1.1
 *
 * @par Notes
 * Mount points are recognised by the mount's identity where the kernel has it (Linux 5.8), else by
 * the device number, which does not distinguish a bind mount of the same filesystem.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * if (g_dir_remove("var/cache/waterworks") == -1) perror("var/cache/waterworks");
 * @endcode
 */
G_API int g_dir_remove(const char* path);
/** @} */

/**
 * @name Configuration
 *
 * g_conf_sync() and g_conf_close() write a file anew from memory: comments are lost, and for a
 * moment the file is empty. g_conf_save() edits the lines that have to change, and replaces the old
 * text by the new one as g_file_replace() does.
 */
/** @{ */

/**
 * Loads the changes that were made to a configuration's file since it was last read or written: for
 * a program that is notified of an edit.
 *
 * Sections and keys that still exist keep their position and spelling, and pointers to unchanged
 * entries and values stay valid. New ones are appended in the order of the file. A NUL byte ends
 * the text. The file is read under a shared lock; the call does not wait for it.
 *
 * Then the callbacks run: those of changed and added keys with the new value, in the order of the
 * file, and last those of removed keys with "". They run on the calling thread, without its lock,
 * when the whole conf is up to date; section and key are spelled as in memory. A callback may do
 * what it may do after a write, and also save and reload.
 *
 * @param conf  from g_conf_open(); not null.
 * @return the number of keys added, changed or removed; -1 on failure, with the reason in `errno`
 *         and the conf unchanged.
 *
 * @par Errors
 * `errno` is one of these, or what a system call set:
 * - `EINVAL`: `conf` is null (``'conf != NULL' FAILED.`` is logged as critical).
 * - `EBUSY`: the conf has changes that were not saved yet.
 * - `ENOENT`: there is no regular file of that name.
 * - `EAGAIN`: another process has the file locked or is writing it.
 * - `EFBIG`: the file has 2 GiB or more.
 * - `ENOMEM`: memory is exhausted.
 * - `EACCES`: the file may not be read.
 *
 * Threads: any thread; others may read and write the conf during the call. Reloads and saves of one
 * conf wait for each other. Cancellation waits until the callbacks have returned; a callback that
 * ends its thread also ends the remaining ones.
 *
 * @since 1.1
 *
 * @par Notes
 * The lock belongs to the process: when this function returns, the process has lost every lock that
 * it had on the same file.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 * #include <groundwork/safe.h>
 *
 * g_file_replace("lamp.conf", "[lamp]\nlevel=3\n", 15);
 * GConf *conf = g_conf_open("lamp.conf");
 * if (conf == NULL) return 1;
 * // Somebody edits the file and sends a signal, which the main loop sees.
 * g_file_replace("lamp.conf", "# brighter\n[lamp]\nlevel=5\n", 26);
 * printf("%d\n", g_conf_reload(conf));                       // prints: 1
 * printf("%d\n", g_conf_read_int(conf, "lamp", "level", 0)); // prints: 5
 * g_conf_close(conf);
 * @endcode
 */
G_API int g_conf_reload(GConf* conf);

/**
 * Saves the changes of a configuration so that a power cut leaves the old file or the new one, and
 * comments stay.
 *
 * Only lines that loading reads as a section header or an entry are changed or removed. Every other
 * line, and every line whose value is still the same, stays as it is:
 *
 * - A new value takes the place of the old one; the key, the blanks after "=" and the kind of line
 *   end stay. If a key occurs several times, the line that loading takes is changed.
 * - A removed key is removed with all its lines, a removed section with its headers and entries.
 * - New keys follow the last entry of their section, new sections come last. Sections without keys
 *   are not written, but a header that is there stays.
 *
 * The file is replaced as by g_file_replace(): links, mode and owner stay.
 *
 * @param conf   from g_conf_open(); not null. If it is not dirty, the call returns 0 and reads
 *               nothing.
 * @param force  0 refuses to touch a file that somebody else has changed. Any other value edits the
 *               file, whatever it holds, until it reads back as the conf: keys that the conf lacks
 *               are removed, too.
 * @return 0 when the conf is saved and durable. 1 when it is saved but the directory could not be
 *         synced, with the reason in `errno`: a power cut may bring the old file back, whole.
 *         Either way the conf is no longer dirty. -1 on failure, with the reason in `errno`; the
 *         file is untouched and the conf stays dirty.
 *
 * @par Errors
 * `errno` is one of these, or what a system call set:
 * - `ESTALE`: the file is gone, or does not hold what was last loaded or written (by g_conf_sync(),
 *   too), or g_conf_sync() ran out of memory and wrote it in pieces. Checked first; never with
 *   `force`.
 * - `EBADMSG`: the file holds a NUL byte. With `force` it is written from nothing.
 * - `EINVAL`: no text reads back as the conf: a value with a line feed, a key with "=" or an
 *   opening "#" or "[", a section with "]", or a record of the program's own whose name exists
 *   already. Or `conf` is null (``'conf != NULL' FAILED.`` is logged as critical).
 * - `EFBIG`: the file or the new text has 2 GiB or more.
 * - `EAGAIN`: another process has the file locked, or is writing it, or has kept its directory
 *   locked for 5 seconds.
 * - `ENOMEM`: memory is exhausted.
 * - `EPERM`: the mode or the owner of the file cannot be kept.
 * - `ENOSPC`: the device is full.
 *
 * Threads: any thread; others may read and write the conf during the call, and what they write
 * later leaves it dirty. Saves and reloads of one conf wait for each other. Cancellation waits
 * until the call returns. No callback runs.
 *
 * @since 1.1
 *
 * @par Notes
 * - If the conf is still dirty, g_conf_close() writes it the unsafe way, over whatever is there. To
 *   discard the changes, set `conf->dirty` to 0 first.
 * - After 1 another call has nothing to save: it returns 0 and syncs nothing. To try again, set
 *   `conf->dirty` to 1 first.
 * - The lock belongs to the process: when this function returns, the process has lost every lock
 *   that it had on the same file.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 * #include <groundwork/safe.h>
 *
 * const char text[] = "# the hall\n[lamp]\nlevel = 3\n";
 * g_file_replace("hall.conf", text, sizeof text - 1);
 * GConf *conf = g_conf_open("hall.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_int(conf, "lamp", "level", 5);
 * if (g_conf_save(conf, 0) == -1) perror(conf->filename);
 * g_conf_close(conf);
 * int64_t size;
 * char *now = g_file_read_buf("hall.conf", &size);
 * if (now != NULL) printf("%s", now);
 * // prints: # the hall
 * // prints: [lamp]
 * // prints: level = 5
 * free(now);
 * @endcode
 */
G_API int g_conf_save(GConf* conf, int force);
/** @} */

/** @name Threads and time */
/** @{ */

/**
 * Takes a ticket for g_thread_event_wait_for(): from now on no signal of the event is lost.
 *
 * Take the ticket first, then look at the data, then wait: a signal that comes between the look and
 * the wait ends the wait immediately.
 *
 * @param event  from g_thread_event_new(); not null.
 * @return how often the event has been signalled or broadcast so far, modulo 2^32; 0 if `event` is
 *         null.
 *
 * @par Errors
 * - `EINVAL`: `event` is null (``'event != NULL' FAILED.`` is logged as critical).
 *
 * Threads: any thread, until the event is freed.
 *
 * @since 1.1
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * static volatile int has_work = 0; // set by another thread, which then signals the event
 *
 * GThreadEvent *event = g_thread_event_new();
 * uint32_t ticket = g_thread_event_ticket(event); // first the ticket,
 * if (!has_work)                                  // then the look at the data,
 *   g_thread_event_wait_for(event, ticket, 10);   // then the wait
 * g_thread_event_free(event);
 * @endcode
 */
G_API uint32_t g_thread_event_ticket(GThreadEvent* event);

/**
 * Waits until an event has been signalled since a ticket was taken, for a limited time. Returns
 * immediately if that is already so. A cancellation point; a cancelled wait releases the event.
 *
 * One g_thread_event_signal() or g_thread_event_broadcast() ends every wait with an older ticket;
 * it also wakes one of the threads in g_thread_event_wait(), or all of them. g_thread_event_free()
 * counts as a signal and ends every such wait.
 *
 * @param event    from g_thread_event_new(); not null.
 * @param ticket   from g_thread_event_ticket() of the same event.
 * @param timeout  milliseconds on the monotonic clock, which nobody sets; 0 does not wait, a
 *                 negative value has no limit.
 * @return 0 when the event has been signalled; 1 when the time has passed without a signal; -1 on
 *         failure, with the reason in `errno`.
 *
 * @par Errors
 * `errno` is one of these, or what a system call set:
 * - `EINVAL`: `event` is null (``'event != NULL' FAILED.`` is logged as critical).
 * - `ENOMEM`: the system has no memory for a wait, which no known system needs.
 *
 * Threads: any number of threads at a time. Another thread may free the event if the wait began
 * before.
 *
 * @since 1.1
 *
 * @par Notes
 * A ticket that is older by exactly 2^32 signals looks new.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * GThreadEvent *event = g_thread_event_new();
 * uint32_t ticket = g_thread_event_ticket(event);
 * printf("%d\n", g_thread_event_wait_for(event, ticket, 10)); // prints: 1
 * g_thread_event_signal(event);
 * printf("%d\n", g_thread_event_wait_for(event, ticket, 10)); // prints: 0
 * g_thread_event_free(event);
 * @endcode
 */
G_API int g_thread_event_wait_for(GThreadEvent* event, uint32_t ticket, int timeout);

/**
 * Locks a mutex if that is possible without waiting, and returns whether it was.
 * (g_thread_mutex_trylock() does not.)
 *
 * @param mutex  from g_thread_mutex_new(); not null.
 * @return 0 when the caller now holds the mutex; 1 when it was busy, also if the caller itself
 *         holds it; -1 on failure, with the reason in `errno`.
 *
 * @par Errors
 * - `EINVAL`: `mutex` is null (``'mutex != NULL' FAILED.`` is logged as critical), or the system
 *   refused.
 *
 * Threads: any thread at any time.
 *
 * @since 1.1
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * GMutex *mutex = g_thread_mutex_new();
 * printf("%d\n", g_thread_mutex_try(mutex)); // prints: 0
 * printf("%d\n", g_thread_mutex_try(mutex)); // prints: 1
 * g_thread_mutex_unlock(mutex);
 * g_thread_mutex_free(mutex);
 * @endcode
 */
G_API int g_thread_mutex_try(GMutex* mutex);

/**
 * Reads the monotonic clock.
 *
 * Nobody sets it, so differences measure time; it stops while the machine sleeps. It does not wrap
 * in the life of a process.
 *
 * @return milliseconds since an unspecified point, usually the start of the system.
 *
 * Threads: any thread at any time.
 *
 * Standard: CLOCK_MONOTONIC of POSIX.
 *
 * @since 1.1
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * int64_t begin = g_monotonic_ms();
 * g_delay(20);
 * if (g_monotonic_ms() - begin >= 19) puts("slept"); // prints: slept
 * @endcode
 */
G_API int64_t g_monotonic_ms(void);

/**
 * Chooses how the timer service sleeps. In power-saving mode its thread sleeps until the next timer
 * is due, 10 seconds at most, instead of 10 ms each time: some wake-ups a minute instead of 100 a
 * second.
 *
 * Timers fire when they would have fired without it: the thread wakes on the same 10 ms grid. Every
 * change of the timers, g_timer_enable(), g_timer_cleanup() and this function wake it; it then
 * scans the timers at the next point of the grid, not immediately.
 *
 * @param on  0 for the default, 10 ms each time; any other value counts as 1 and saves power.
 * @return the previous choice, 0 or 1.
 *
 * Threads: any thread at any time, also in the callback of a timer. A child of fork() inherits the
 * choice.
 *
 * @since 1.1
 *
 * @par Notes
 * Timers are measured by the wall clock, and the service reads it when it wakes. When the clock is
 * set, power-saving mode therefore makes a difference:
 * - A step of less than 30 seconds takes effect when the thread wakes next, up to 10 seconds later,
 *   not within 10 ms.
 * - A step of more than 30 seconds, which does not count, costs the timers the time that the thread
 *   has slept, up to 10 seconds, not up to 10 ms. So does g_start_ticks() while the service runs.
 * - A step of 20 to 40 seconds may be taken for one of more or less than 30, because the time slept
 *   adds to it or makes up for it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * printf("%d\n", g_timer_save_power(1)); // prints: 0
 * printf("%d\n", g_timer_save_power(1)); // prints: 1
 * @endcode
 */
G_API int g_timer_save_power(int on);
/** @} */

/** @name Containers */
/** @{ */

/**
 * Calls a function for each entry of a hash table, in the order of the slots, until it returns a
 * value other than 0.
 *
 * The function may remove any key, its own included; a removed entry is not visited. It may look up
 * keys in the same table and walk it; a destroy function that its removals call may do the same. It
 * must not insert, because growth moves entries: the walk still ends, but may miss entries and
 * visit others twice. It must not free the table.
 *
 * @param hash  from g_hash_new(); not null.
 * @param func  called with key and value as stored, and `data`; not null.
 * @param data  passed to `func`; stays the caller's; may be null.
 * @return what the last call returned, 0 if there was none; -1 if `hash` or `func` is null.
 *
 * @par Errors
 * - `EINVAL`: `hash` or `func` is null (``'hash != NULL' FAILED.`` or ``'func != NULL' FAILED.`` is
 *   logged as critical).
 *
 * Threads: no lock; callers that share a table lock around every call. A thread may end inside the
 * function, or leave it with longjmp().
 *
 * @since 1.1
 *
 * @par Notes
 * - A key that is stored twice, as can happen when g_hash_insert() follows removals, is visited
 *   twice.
 * - The entry whose destroy function is running is still in the table, and visited.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 * #include <groundwork/safe.h>
 *
 * static int print(void *key, void *value, void *data) {
 *   (void)data;
 *   printf("%s is %s\n", (const char *)key, (const char *)value);
 *   return 0; // go on
 * }
 *
 * GHash *ages = g_hash_new(16, g_hash_str, g_hash_str_equal, NULL);
 * if (ages == NULL) return 1;
 * g_hash_insert(ages, "Ada", "36");
 * g_hash_foreach(ages, print, NULL); // prints: Ada is 36
 * g_hash_free(ages);
 * @endcode
 */
G_API int g_hash_foreach(GHash* hash, int (*func)(void* key, void* value, void* data),
                         void* data);
/** @} */

/** @name HTTP */
/** @{ */

/**
 * Limits how long HTTP streams wait. The limit holds for streams that are opened from now on.
 *
 * With a limit, the connection is made within it (and within the 5 seconds that always apply),
 * status and headers arrive completely within it after the request, and each read waits no longer
 * than it for the next byte of the body. An interrupted wait goes on with the rest of the time.
 *
 * When the time runs out, opening fails; url_read() returns the bytes that had arrived, 0 if there
 * were none, url_gets() null and url_fgetc() -1. The stream stays failed: every later read fails
 * immediately in the same way.
 *
 * @param ms  milliseconds; 0, as at load, for no limit. A negative value counts as 0.
 * @return the previous limit in milliseconds.
 *
 * @par Errors
 * When the time runs out, the function that waited sets `errno` and `url_errno`:
 * - `ETIMEDOUT`: the limit has passed.
 *
 * Threads: the setting belongs to the whole process. It takes no lock: callers take turns, also
 * with calls of url_http_open().
 *
 * @since 1.1
 *
 * @par Notes
 * Name look-up is not covered; for its limit see resolv.conf(5), "timeout". open_socket() keeps its
 * 5 seconds.
 *
 * @par Example
 * @code{.c}
 * #include <errno.h>
 * #include <groundwork/safe.h>
 * #include <groundwork/url.h>
 *
 * url_http_set_timeout(3000);
 * URL url = url_http_open("http://localhost:8080/notes.txt");
 * if (url == NULL) {
 *   fprintf(stderr, "%s\n", url_strerror(url_errno));
 *   return 1;
 * }
 * char text[256];
 * int32_t length = url_nread(url, text, sizeof text - 1);
 * if (length > 0 && url_errno != ETIMEDOUT) printf("%.3s\n", text); // prints: one
 * url_close(url);
 * @endcode
 */
G_API int url_http_set_timeout(int ms);
/** @} */

#ifdef __cplusplus
}
#endif

/** @} */

#endif
