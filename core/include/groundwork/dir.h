/* SPDX-License-Identifier: MIT */
/**
 * @defgroup dir Directories
 * @ingroup system
 *
 * Directories by path: test, list, create with parents, remove and walk whole trees.
 *
 * Symbolic links are followed everywhere, also by g_rmdir(): read its warnings. Names that
 * begin with "." are like any other, except "." and "..", which no function lists, walks
 * or removes. Names may hold any byte but "/" and NUL. Trees may be as deep as the
 * system's paths are long (4096 bytes, terminator included); depth costs neither
 * descriptors nor stack, but memory for the names of each directory on the way.
 *
 * Where an argument is checked, a failed check is logged as critical and the failure value
 * returned with nothing done. "failed to allocate %u bytes." is logged as a warning when a
 * tree cannot be read for want of memory; what was read until then is dealt with.
 *
 * Threads: no shared state.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char path[] = "data/today/"; // writable; the "/" at the end has "today" created, too
 * if (g_mkdir(path) != 0) return 1;
 * g_file_touch("data/today/b.log");
 * g_file_touch("data/today/a.log");
 *
 * char **names = g_dir_list("data/today", 0, NULL);
 * if (names == NULL) return 1;
 * for (char **name = names; *name != NULL; ++name) puts(*name);
 * // prints: a.log
 * // prints: b.log
 * g_dir_list_free(names);
 * g_rmdir("data"); // with all that is in it
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_DIR_H
#define GROUNDWORK_DIR_H

#include <stdint.h> /* as any header of the C library, tells how wide time_t is */

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

#if !defined(__GLIBC__) && !defined(stat64)
#define stat64 stat /* the only one has wide fields; as <sys/stat.h> of musl defines it */
#endif
struct stat64;

/** Tells whether a path is a directory. @param path not null. @return 1 if it is one or a
 *  link to one; 0 for anything else, for a missing path and on a failed check. */
G_API int g_dir_exist(const char* path);

/**
 * Lists a directory, sorted as alphasort() does: by strcoll() in the current locale.
 *
 * @warning Types are those of the directory entries: a link to a directory is none, and on
 * a filesystem that reports no types nothing is.
 *
 * @param path    not null.
 * @param filter  1 for directories only, 2 for all but directories, any other value for
 *                everything.
 * @param count   receives the number of names; may be null. Untouched on failure.
 * @return the names, without the path, in an array that a null pointer ends (and may be
 *         all that it holds), to be freed with g_dir_list_free(). Null, with nothing
 *         logged but the check, on a failed check, when the directory cannot be read, or
 *         when memory is exhausted.
 */
G_API char** g_dir_list(const char* path, int filter, int* count);

/** Frees a list with its names. @param dir_list from g_dir_list(), not null. */
G_API void g_dir_list_free(char** dir_list);

/**
 * Creates a directory with permissions 0755 (less the umask), or else its parents.
 *
 * @warning Where a parent is missing, the last component is not created, unless it is
 * followed by a "/": with "a" missing, "a/b/c" creates "a" and "a/b" and returns 0. Call
 * twice, or end the path with "/".
 *
 * @param path  not null; writable, since it is cut at each "/" in turn during the call.
 * @return 0, also when everything exists already, be it as a file; -1 on a failed check or
 *         when a parent cannot be created ("%s - %s(%d).", a warning with the system's
 *         text, the parent and the error number).
 */
G_API int g_mkdir(char* path);

/**
 * Removes a tree: a directory with all it holds, or a single file.
 *
 * @warning Links to directories are followed. What a link in the tree leads to is emptied,
 * wherever it lies, before the link itself is removed.
 *
 * @warning When `path` cannot be opened as a directory, it is logged ("%s - %s", a warning
 * with the system's text and the path) and unlinked, and then so is the first component
 * on the way to it that cannot be opened as a directory, such as a dangling link, or a link
 * to a directory that this process may not read. The result is 0, whatever became of it.
 *
 * An entry that cannot be examined, or whose path is too long for the system, is logged
 * ("%s - %s.", a warning with the system's text and its path) and left, except dangling
 * links and entries that are gone meanwhile, which are left silently. What cannot be
 * removed stays, and the directories above it with it.
 *
 * @param path  not null; unchecked.
 * @return 0 when the directory `path` is gone, or was none; else rmdir()'s -1 (`errno` not
 *         meaningful), also when memory is exhausted at the start. Ask g_dir_exist().
 */
G_API int g_rmdir(const char* path);

/**
 * Called by g_scandir() for each file.
 *
 * @param path    the directory, "/" and the name; valid during the call.
 * @param status  what stat() says of the file (links followed); valid during the call.
 * @param data    as given to g_scandir().
 * @return added to the result, for files directly in the top directory.
 */
typedef int (*GScandirFunc)(const char* path, const struct stat64* status, void* data);

/**
 * Walks a tree and calls a function for everything in it but directories, each directory
 * in its own order. A directory's names are read before the first call for it: `func` may
 * remove or create files. It may also end its thread.
 *
 * `status` has the layout that the application was compiled with: on 32-bit targets
 * `_TIME_BITS=64` gives 64-bit times. Without it, times outside 1901 to 2038 are given as
 * the first or last second of that range.
 *
 * @warning Links to directories are followed. A link to a directory above it is walked
 * again inside itself until the system stops at 40 links; with two such links in one place
 * the walk takes longer than anybody will wait.
 *
 * What cannot be read is skipped and printed to standard output, whatever the log
 * threshold: "g_dir:%d opendir('%s') fail\n" and "g_dir:%d stat('%s') fail\n", with the
 * source line and the path.
 *
 * @warning A name with which the path would have more than 4095 bytes is cut there. Where
 * the path that is left leads to a file, `func` is called for that file, with that path;
 * where it leads to a directory, the directory is not walked, and the whole path is
 * printed as one that cannot be opened.
 *
 * @param path  not null; unchecked. With a "/" at its end, paths of files in the top
 *              directory have no second one; those below have.
 * @param func  not null; unchecked.
 * @param data  passed on.
 * @return the sum of what `func` returned for files directly in `path`; results from
 *         deeper files are not counted. 0 when `path` cannot be read.
 */
#if defined(__USE_TIME_BITS64) && defined(__TIMESIZE) && __TIMESIZE == 32
G_API int g_scandir(const char* path, GScandirFunc func,
                    void* data) __asm__("g_scandir_time64");
#else
G_API int g_scandir(const char* path, GScandirFunc func, void* data);
#endif

/** @} */

#ifdef __cplusplus
}
#endif

#endif
