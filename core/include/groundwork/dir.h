/* SPDX-License-Identifier: MIT */
/**
 * @defgroup dir Directories
 * @ingroup system
 *
 * Directories by path: test, list, create with parents, remove and walk whole trees.
 *
 * Symbolic links are followed everywhere, also by g_rmdir(): read its notes. Names that begin with
 * "." are like any other, except "." and "..", which no function lists, walks or removes. Names may
 * hold any byte but "/" and NUL. Trees may be as deep as the system's paths are long (4096 bytes
 * with the terminator). Depth costs neither descriptors nor stack, only memory for the names of
 * each directory on the way down.
 *
 * Where an argument is checked, a failed check is logged as critical and the failure value returned
 * with nothing done. "failed to allocate %u bytes." is logged as a warning when memory for the
 * names of a directory is exhausted; the names that were read until then are processed.
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
 * g_rmdir("data"); // with everything in it
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

/**
 * Returns whether a path is a directory, or a link to one.
 *
 * @param path  path; not null.
 * @return 1 if it is; 0 for anything else, for a missing file, or when `path` is null.
 *
 * @par Errors
 * - ``'path != NULL' FAILED.``: critical; `path` is null.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * printf("%d\n", g_dir_exist("/"));         // prints: 1
 * printf("%d\n", g_dir_exist("notes.txt")); // prints: 0
 * @endcode
 */
G_API int g_dir_exist(const char* path);

/**
 * Lists a directory, sorted as alphasort() does: by strcoll() in the current locale.
 *
 * @param path    path of the directory; not null.
 * @param filter  1 for directories only, 2 for everything but directories, any other value for
 *                everything.
 * @param count   receives the number of names; may be null. Untouched on failure.
 * @return the names, without the path, in an array that ends with a null pointer, owned by the
 *         caller and released with g_dir_list_free(). Null when `path` is null, or, with nothing
 *         logged, when the directory cannot be read or memory is exhausted.
 *
 * @par Errors
 * - ``'path != NULL' FAILED.``: critical; `path` is null.
 *
 * Threads: any thread; setlocale() must not be called at the same time.
 *
 * @par Notes
 * The type is that of the directory entry: a link to a directory is not a directory, and on a
 * filesystem that reports no types nothing is.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int count = 0;
 * char **names = g_dir_list(".", 2, &count); // the files
 * if (names == NULL) return 1;
 * for (int i = 0; i < count; ++i) puts(names[i]);
 * g_dir_list_free(names);
 * @endcode
 */
G_API char** g_dir_list(const char* path, int filter, int* count);

/**
 * Frees a list of names, and the names.
 *
 * @param dir_list  from g_dir_list(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'dir_list != NULL' FAILED.``: critical; `dir_list` is null.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char **names = g_dir_list(".", 0, NULL);
 * if (names == NULL) return 1;
 * g_dir_list_free(names);
 * @endcode
 */
G_API void g_dir_list_free(char** dir_list);

/**
 * Creates a directory with permissions 0755 (less the umask), or else its parents.
 *
 * @param path  path of the directory; not null. It must be writable: during the call it is cut at
 *              each "/" in turn.
 * @return 0, also when everything exists already, even as a file; -1 when `path` is null, or when a
 *         parent cannot be created.
 *
 * @par Errors
 * - ``'path != NULL' FAILED.``: critical; `path` is null.
 * - ``%s - %s(%d).``: warning, with the system's text, the parent and the error number; mkdir()
 *   failed.
 *
 * Threads: any thread.
 *
 * @par Notes
 * Where a parent is missing, the last component is not created unless a "/" follows it: with "a"
 * missing, "a/b/c" creates "a" and "a/b" and returns 0. End the path with "/", call twice, or use
 * g_dir_make() of <groundwork/safe.h>.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char path[] = "data/today/"; // writable, and with a "/" at the end
 * if (g_mkdir(path) != 0) return 1;
 * printf("%d\n", g_dir_exist("data/today")); // prints: 1
 * @endcode
 */
G_API int g_mkdir(char* path);

/**
 * Removes a tree: a directory with everything in it, or a single file.
 *
 * When `path` cannot be opened as a directory, it is unlinked, and then so is the first component
 * on the way to it that cannot be opened as a directory, such as a dangling link, or a link to a
 * directory that this process may not read. The result is 0, whatever happened.
 *
 * An entry that cannot be examined, or whose path is too long for the system, is logged and left.
 * Dangling links, and entries that have disappeared, are left silently. What cannot be removed
 * stays, and so do the directories above it.
 *
 * @param path  path of the directory or file; not null, unchecked.
 * @return 0 when the directory `path` was removed, or was not a directory; -1 when it is still
 *         there, or when memory was exhausted at the start. `errno` is not meaningful. Ask
 *         g_dir_exist() whether it is gone.
 *
 * @par Errors
 * - ``%s - %s``: warning, with the system's text and the path; it cannot be opened as a directory.
 * - ``%s - %s.``: warning, with the system's text and the path of an entry; it cannot be examined.
 * - ``failed to allocate %u bytes.``: warning; memory for the names of a directory is exhausted.
 *
 * Threads: any thread. A cancelled thread leaves the rest of the tree.
 *
 * @par Notes
 * - Links to directories are followed. Whatever a link in the tree leads to is emptied, wherever it
 *   is, before the link itself is removed: one link costs files outside the tree. g_dir_remove() of
 *   <groundwork/safe.h> stays inside.
 * - Of a path that is not a directory, a prefix may be unlinked, too.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char path[] = "data/today/";
 * g_mkdir(path);
 * g_file_touch("data/today/a.log");
 * g_rmdir("data");
 * printf("%d\n", g_dir_exist("data")); // prints: 0
 * @endcode
 */
G_API int g_rmdir(const char* path);

/**
 * Called by g_scandir() for each file.
 *
 * @param path    the directory, "/" and the name; valid during the call.
 * @param status  what stat() reports for the file (links followed); valid during the call.
 * @param data    as given to g_scandir().
 * @return added to the result, for files directly in the top directory.
 */
typedef int (*GScandirFunc)(const char* path, const struct stat64* status, void* data);

/**
 * Walks a tree and calls a function for everything in it but directories. The entries of a
 * directory come in its own order. All names of a directory are read before the first call for it,
 * so `func` may remove or create files. It may also end its thread.
 *
 * `status` has the layout that the application was compiled with: on 32-bit targets `_TIME_BITS=64`
 * gives 64-bit times. Without it, times outside 1901 to 2038 become the first or last second of
 * that range.
 *
 * What cannot be read is skipped and printed to standard output, whatever the log threshold.
 *
 * @param path  path of the top directory; not null, unchecked. With a "/" at its end, the paths of
 *              files in the top directory get no second one; those of deeper files do.
 * @param func  called with the path and the status of each file, and `data`; not null, unchecked.
 * @param data  passed to `func`; stays the caller's; may be null.
 * @return the sum of what `func` returned for files directly in `path`; results for deeper files
 *         are not counted. 0 when `path` cannot be read.
 *
 * @par Errors
 * The first two lines go to standard output, with the source line and the path:
 * - ``g_dir:%d opendir('%s') fail``: a directory cannot be opened.
 * - ``g_dir:%d stat('%s') fail``: an entry cannot be examined.
 * - ``failed to allocate %u bytes.``: warning; memory for the names of a directory is exhausted.
 *
 * Threads: any thread; `func` runs on the calling thread.
 *
 * @par Notes
 * - Links to directories are followed. A link to a directory above it is walked again inside itself
 *   until the system stops at 40 links; with two such links in one place the walk takes longer than
 *   anybody will wait.
 * - The result is not the sum over the tree. Count in `func`.
 * - A name with which the path would have more than 4095 bytes is cut there. If the cut path leads
 *   to a file, `func` is called for that file, with that path. If it leads to a directory, the
 *   directory is not walked, and the whole path is printed as one that cannot be opened.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(const char *path, const struct stat64 *status, void *data) {
 *   (void)status;
 *   ++*(int *)data; // counts in the whole tree
 *   puts(path);
 *   return 0;
 * }
 *
 * char path[] = "data/today/";
 * int files = 0;
 * g_mkdir(path);
 * g_file_touch("data/today/a.log");
 * g_scandir("data", print, &files); // prints: data/today/a.log
 * printf("%d\n", files);            // prints: 1
 * @endcode
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
