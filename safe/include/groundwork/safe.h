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
G_API int g_file_duplicate(const char* from, const char* to);

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
G_API int g_file_replace(const char* path, const void* buf, int64_t len);
/** @} */

/**
 * @name Directories
 *
 * No function of these is limited in the length of a path but by the system: 4095 bytes in
 * `path`, as many as wanted below it.
 */
/** @{ */

/**
 * Makes a directory and all its parents that are missing.
 *
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * if (g_dir_make("var/lib/waterworks", 0750) == -1) perror("var/lib/waterworks");
 * @endcode
 *
 * @param path  not null. A link to a directory counts as one.
 * @param mode  permissions of what is made, as for mkdir(): less the umask, without set-ID
 *              bits. Parents get write and search permission for their owner besides, whatever
 *              the umask.
 * @return 0, also when the directory is there already, whatever its permissions. -1 with
 *         `errno`: `EINVAL` after a failed check (which is logged as critical), `ENOTDIR`
 *         where something else is in the way, as last component, too, a dangling link for
 *         one, `ENOENT` for an empty path, `ENOMEM`, or as mkdir() fails. Parents that were
 *         made before a failure stay.
 *
 * Threads: no shared state; any number at once, for the same directory, too.
 */
G_API int g_dir_make(const char* path, unsigned mode);

/**
 * Removes a tree or a file, and nothing outside it.
 *
 * A symbolic link is removed and never followed, neither `path` itself nor in the tree, also
 * when a directory is swapped for one meanwhile. Mount points in the tree stay, with what is
 * mounted and all directories above them; they are told by the mount's identity where the
 * kernel gives it (Linux 5.8), else by the device, which does not tell a bind mount of the same
 * filesystem. After a failure all the rest is still removed.
 *
 * @code{.c}
 * #include <groundwork/safe.h>
 *
 * if (g_dir_remove("var/cache/waterworks") == -1) perror("var/cache/waterworks");
 * @endcode
 *
 * @param path  not null. Links among its leading components are followed.
 * @return 0 when all is gone. -1 when something is left, with `errno` of the first failure:
 *         `EINVAL` after a failed check (which is logged as critical), and for "", "/" and a
 *         path whose last component is "." or ".."; `ENOENT` when there is nothing of that
 *         name; `ENOTDIR` for a file or a link with a "/" at its end; `EXDEV` for a mount
 *         point; `ESTALE` when a directory was moved elsewhere during the walk and the way
 *         back was lost; `ENOMEM`; else as opening or removing fails.
 *
 * Whatever the tree, it needs up to 10 descriptors and the C library's buffers for 8 open
 * directories; besides some 16 bytes of memory for each level of depth and for each
 * subdirectory that cannot be removed.
 *
 * Threads: no shared state; any number at once. Cancellation waits until it returns.
 */
G_API int g_dir_remove(const char* path);
/** @} */

/** @name Configuration
 *
 * g_conf_sync() and g_conf_close() write a file anew from the model: comments go, and for a
 * moment the file is empty. g_conf_save() changes the lines that have to change, and puts the
 * new text in place of the old as g_file_replace() does.
 */
/** @{ */

/**
 * Takes in what a configuration's file holds now: for a program that is told that somebody
 * edited it.
 *
 * Sections and keys that stay keep their place and spelling, and pointers to unchanged entries
 * and values stay valid; what is new is appended in the order of the file. A NUL byte ends the
 * text. The file is read under a shared lock, as g_conf_open() does, that is not waited for.
 *
 * Then the callbacks run: of changed and added keys with the new value, in the order of the
 * file, and last those of removed keys with "". They run on the calling thread without its
 * lock, when the whole model is up to date; section and key are spelled as in the model. A
 * callback may do what it may after a write, and also save and reload.
 *
 * @code{.c}
 * #include <groundwork/groundwork.h>
 * #include <groundwork/safe.h>
 *
 * g_file_replace("lamp.conf", "[lamp]\nlevel=3\n", 15);
 * GConf *conf = g_conf_open("lamp.conf");
 * if (conf == NULL) return 1;
 * // Somebody edits the file, and sends a signal that the main loop sees.
 * g_file_replace("lamp.conf", "# brighter\n[lamp]\nlevel=5\n", 26);
 * printf("%d\n", g_conf_reload(conf));                         // prints: 1
 * printf("%d\n", g_conf_read_int(conf, "lamp", "level", 0));   // prints: 5
 * g_conf_close(conf);
 * @endcode
 *
 * @param conf  not null.
 * @return the number of keys added, changed or removed; -1 with `errno` when the model was left
 *         as it was: `EBUSY` for changes that were not saved yet, `ENOENT` when there is no
 *         regular file, `EAGAIN` while another process has it locked or writes it, `EFBIG` for
 *         2 GiB and more, `ENOMEM`, `EINVAL` after the failed check (which is logged as
 *         critical); else what the system said.
 *
 * Threads: any; others may read and write the conf meanwhile. Reloads and saves of one conf
 * wait for each other. Cancellation waits until the callbacks have returned; one that ends its
 * thread ends the later ones, too.
 */
G_API int g_conf_reload(GConf* conf);

/**
 * Saves the changes of a configuration, so that a power cut leaves the old file or the new
 * one, and comments stay.
 *
 * Only lines that loading reads as a section's header or an entry are changed or removed. Every
 * other line, and every line whose value is still the same, stays as it is:
 *
 * - A new value takes the place of the old one; key, blanks after "=" and the kind of line end
 *   stay. Of a key that is given several times the line that loading takes is changed.
 * - A removed key takes all its lines along, a removed section its headers and entries.
 * - New keys follow the last entry of their section, new sections come last. Sections without
 *   keys are not written, but a header that is there stays.
 *
 * The file is replaced as by g_file_replace(): link, mode and owner stay.
 *
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
 * printf("%s", now);
 * // prints: # the hall
 * // prints: [lamp]
 * // prints: level = 5
 * free(now);
 * @endcode
 *
 * @param conf   not null. One that is not dirty is saved already: 0, and nothing is read.
 * @param force  0 refuses to touch a file that somebody else has changed. Anything else edits
 *               what is there until it reads as the model: keys that the model lacks go, too.
 * @return as g_file_replace(): 0 saved and durable; 1 saved, but a power cut may bring the old
 *         file back; both leave the conf no longer dirty. -1 when the file is untouched; the
 *         conf stays dirty, and `errno` is
 *         - `ESTALE`: the file is gone, or does not hold what was loaded or last written (by
 *           g_conf_sync(), too); this is asked first. Never with `force`.
 *         - `EBADMSG`: it holds a NUL byte. With `force` the model is written from nothing.
 *         - `EINVAL`: no text reads back as the model is: a value with a line feed, a key with
 *           "=" or an opening "#" or "[", a section with "]", a program's own record of a name
 *           that is there already. Or the check failed (which is logged as critical).
 *         - `EFBIG`: the file or the new text has 2 GiB or more.
 *         - `EAGAIN`: another process has the file locked, or writes it or its directory.
 *         - `ENOMEM`, or what g_file_replace() or the system said.
 *
 * @warning A conf that is still dirty is written by g_conf_close() in the kept way, over
 * whatever is there. To give the changes up, set `conf->dirty` to 0 before.
 *
 * Threads: any; others may read and write the conf meanwhile: what they write later leaves it
 * dirty. Saves and reloads of one conf wait for each other. Cancellation waits until it
 * returns. No callback runs.
 */
G_API int g_conf_save(GConf* conf, int force);
/** @} */

/** @name Threads and time */
/** @{ */

/**
 * Takes a ticket for g_thread_event_wait_for(): from now on no signal of the event is lost.
 *
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
 *
 * @param event  not null (else 0, logged as critical, `errno` is `EINVAL`).
 * @return how often the event was signalled or broadcast so far, modulo 2^32.
 *
 * Threads: any thread, until the event is freed.
 */
G_API uint32_t g_thread_event_ticket(GThreadEvent* event);

/**
 * Waits until an event is signalled for the first time since a ticket was taken, at most for
 * some time. Returns immediately if that was before the call. A cancellation point; a cancelled
 * wait lets go of the event.
 *
 * One g_thread_event_signal() or g_thread_event_broadcast() ends every wait with an older ticket,
 * and of the threads in g_thread_event_wait() it still wakes one, or all. g_thread_event_free()
 * counts as a signal and ends every such wait. A ticket that is older by exactly 2^32 signals
 * looks new.
 *
 * @param event    not null.
 * @param ticket   from g_thread_event_ticket().
 * @param timeout  milliseconds on the monotonic clock, which nobody sets; 0 does not wait, a
 *                 negative one has no limit.
 * @return 0 when the event was signalled; 1 when the time has passed without; -1 when `event` is
 *         null (logged as critical, `errno` is `EINVAL`), or with the system's `errno` when it has
 *         not the memory for a wait, which no known system needs.
 *
 * Threads: any number at a time; also while another one frees the event, as long as the wait
 * began before.
 */
G_API int g_thread_event_wait_for(GThreadEvent* event, uint32_t ticket, int timeout);

/**
 * Locks a mutex if that is possible without waiting, and tells whether it was:
 * g_thread_mutex_trylock() does not.
 *
 * @param mutex  not null.
 * @return 0 when the caller holds the mutex now; 1 when it was busy, which includes being held by
 *         the caller; -1 when `mutex` is null (logged as critical, `errno` is `EINVAL`) or the
 *         system refuses, with its `errno`.
 *
 * Threads: any thread at any time.
 */
G_API int g_thread_mutex_try(GMutex* mutex);

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

/**
 * Chooses how the timer service sleeps. When on, its thread sleeps until the next timer is due,
 * 10 seconds at most, instead of 10 ms each time: some wake-ups a minute in place of 100 a second.
 *
 * Timers fire when they would have fired: the thread wakes on the same raster of 10 ms. Every
 * change of the timers, g_timer_enable(), g_timer_cleanup() and this function wake it; it then
 * looks at the timers at the next point of the raster, not at once.
 *
 * What differs is how the service sees the wall clock, by which timers are measured, being set.
 * It reads the clock when it wakes, so
 * - a step of less than 30 seconds takes effect when the thread wakes next, up to 10 seconds
 *   later, not within 10 ms;
 * - a step of more than 30 seconds, which does not count, costs the timers the time that the
 *   thread has slept, up to 10 seconds, not up to 10 ms; so does g_start_ticks() while the service
 *   runs;
 * - a step of 20 to 40 seconds may be taken for one of more or less than 30, since the time slept
 *   adds to it or makes up for it.
 *
 * @param on  0 for the usual way, as at load; any other value counts as 1.
 * @return the previous choice, 0 or 1.
 *
 * Threads: any thread at any time, also in a timer's callback. A child of fork() inherits the
 * choice.
 */
G_API int g_timer_save_power(int on);
/** @} */

/** @name Containers */
/** @{ */

/**
 * Calls a function for each entry of a hash table, in the order of the slots, until it returns
 * other than 0.
 *
 * The function may remove any key, its own included; a removed entry is not visited. It may look
 * up, and walk the same table; a destroy function that its removals call may do the same. It
 * must not insert, because growth moves entries: the walk ends then, too, but may miss
 * entries and visit others twice. It must not free the table.
 *
 * A key that is stored twice (see g_hash_insert()) is visited twice. The entry of a destroy
 * function that is running is still there, and visited.
 *
 * @param hash  not null (logged as critical).
 * @param func  gets key and value as stored, and `data`; not null (logged as critical).
 * @param data  passed on; may be null.
 * @return what the last call returned, 0 when there was none; -1 with EINVAL on a failed
 *         check.
 *
 * Threads: nothing is locked, as with every function of a hash table. A thread may end inside
 * the function, or leave it with longjmp().
 */
G_API int g_hash_foreach(GHash* hash, int (*func)(void* key, void* value, void* data),
                         void* data);
/** @} */

/** @name HTTP */
/** @{ */

/**
 * Limits how long HTTP streams wait: those that are opened from now on.
 *
 * With a limit, the connection is made within it (and within the 5 seconds that there always
 * are), status and headers arrive whole within it after the request, and each read waits no
 * longer than it for the next byte of the body. An interrupted wait goes on with the rest of
 * the time. The look-up of the server's name is not covered, and open_socket() keeps its 5
 * seconds.
 *
 * When the time runs out, opening fails; url_read() returns what had come, 0 for nothing,
 * url_gets() null and url_fgetc() -1; `errno` and `url_errno` are ETIMEDOUT. The stream stays
 * failed: every later read fails immediately in the same way.
 *
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
 *
 * @param ms  milliseconds; 0, as at load, for no limit. A negative limit is taken as 0.
 * @return the limit until now.
 *
 * Threads: the setting belongs to the whole process; callers take turns, as those of
 * url_http_open().
 */
G_API int url_http_set_timeout(int ms);
/** @} */

#ifdef __cplusplus
}
#endif

/** @} */

#endif
