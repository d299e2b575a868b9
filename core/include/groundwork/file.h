/* SPDX-License-Identifier: MIT */
/**
 * @defgroup file Files
 * @ingroup system
 *
 * Files: handles with 64-bit offsets, whole-file locks, whole files in one call, and operations by
 * path.
 *
 * Every function that checks an argument logs a failed check as critical and returns its failure
 * value with nothing done. System failures are logged as warnings where the function says so.
 * Nothing is retried: a signal (`EINTR`), a short read or a short write is the caller's to handle.
 * Paths are the system's: any bytes but NUL, relative ones start from the working directory, and
 * symbolic links are followed.
 *
 * Descriptors are opened with `O_CLOEXEC`, so a program that the process executes does not inherit
 * them.
 *
 * Threads: no shared state. Two threads that use one GFile lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("pump.log", 2); // 2: created, or emptied
 * if (file == NULL) return 1;               // the reason has been logged
 * if (g_file_lock_write(file) == 0) {
 *   g_file_write(file, "started\n", 8);
 *   g_file_unlock(file);
 * }
 * g_file_close(file);
 *
 * int64_t size = 0;
 * char *text = g_file_read_buf("pump.log", &size); // a NUL follows the content
 * if (text == NULL) return 1;
 * printf("%d bytes: %s", (int)size, text); // prints: 8 bytes: started
 * free(text);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_FILE_H
#define GROUNDWORK_FILE_H

#include <stdint.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** An open file; from g_file_open(), released with g_file_close(). */
typedef struct GFile GFile;

/**
 * Opens a file.
 *
 * @param filename  path of the file; not null.
 * @param mode      0 reads; 1 writes an existing file from its start and keeps its content; 2
 *                  creates the file with permissions 0644 (less the umask), or empties it, and
 *                  writes. Any other value reads.
 * @return the file, owned by the caller and released with g_file_close(); null when `filename` is
 *         null, when the system refuses, or when memory is exhausted.
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 * - ``can't open file '%s' - %s``: warning, with the file name and the system's text; open()
 *   failed.
 * - ``failed to allocate %u bytes.``: warning; memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("notes.txt", 0);
 * if (file == NULL) return 1; // the reason has been logged
 * char text[3];
 * printf("%d\n", (int)g_file_read(file, text, sizeof text)); // prints: 3
 * g_file_close(file);
 * @endcode
 */
G_API GFile* g_file_open(const char* filename, int mode);

/**
 * Closes a file and frees its handle.
 *
 * @param file  from g_file_open(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 *
 * Threads: no other thread may use the handle during the call or afterwards. A cancellation point.
 *
 * @par Notes
 * Closing drops every lock that the process has on the same file, whichever handle took it: use one
 * handle for a file.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("pump.log", 2);
 * if (file == NULL) return 1;
 * g_file_write(file, "started\n", 8);
 * g_file_close(file);
 * printf("%d\n", (int)g_file_size("pump.log")); // prints: 8
 * @endcode
 */
G_API void g_file_close(GFile* file);

/**
 * Reads from a file, with one read().
 *
 * @param file  from g_file_open(), open for reading.
 * @param buf   room for `len` bytes; not null.
 * @param len   number of bytes wanted; only its low 32 bits are used, as an unsigned number.
 * @return the number of bytes read, which may be fewer; 0 at the end of the file; -1 when an
 *         argument is null, or on a read error with the reason in `errno`, which is not logged.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 * - ``'buf != NULL' FAILED.``: critical; `buf` is null.
 * - `EINTR`: a signal came before any byte.
 * - `EBADF`: the file is not open for reading.
 * - `EISDIR`: the file is a directory.
 * - `EIO`: an input error.
 *
 * Threads: no lock; threads that share the handle lock around it. A cancellation point.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char text[4] = "";
 * GFile *file = g_file_open("notes.txt", 0);
 * if (file == NULL) return 1;
 * if (g_file_read(file, text, 3) == 3) puts(text); // prints: one
 * g_file_close(file);
 * @endcode
 */
G_API int64_t g_file_read(GFile* file, void* buf, int64_t len);

/**
 * Writes to a file, with one write().
 *
 * @param file  from g_file_open(), open for writing.
 * @param buf   `len` bytes; not null.
 * @param len   number of bytes to write; only its low 32 bits are used, as an unsigned number.
 * @return the number of bytes written, which may be fewer; -1 when an argument is null, or on a
 *         write error with the reason in `errno`.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 * - ``'buf != NULL' FAILED.``: critical; `buf` is null.
 * - ``%s - %d.``: warning, with the system's text and the error number; write() failed.
 * - `EINTR`: a signal came before any byte.
 * - `EBADF`: the file is not open for writing.
 * - `ENOSPC`: the device is full.
 * - `EFBIG`: the file would exceed the limit of the process or of the filesystem.
 *
 * Threads: no lock; threads that share the handle lock around it. A cancellation point.
 *
 * @par Notes
 * Beyond the process's limit on files (`RLIMIT_FSIZE`) the system raises SIGXFSZ, which ends the
 * process unless it is ignored; if it is, the write fails with `EFBIG`.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * const char line[] = "started\n";
 * GFile *file = g_file_open("pump.log", 2);
 * if (file == NULL) return 1;
 * if (g_file_write(file, line, sizeof line - 1) != sizeof line - 1) puts("not whole");
 * g_file_close(file);
 * @endcode
 */
G_API int64_t g_file_write(GFile* file, const void* buf, int64_t len);

/**
 * Moves the offset of a file, as lseek() does.
 *
 * @param file    from g_file_open().
 * @param offset  bytes, relative to what `whence` says.
 * @param whence  `SEEK_SET` for the start of the file, `SEEK_CUR` for the current offset,
 *                `SEEK_END` for the end of the file.
 * @return the new offset in bytes from the start; -1 when `file` is null, or on an error with the
 *         reason in `errno`, which is not logged.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 * - `EINVAL`: `whence` is none of the three, or the offset would be negative.
 * - `ESPIPE`: the file is a pipe or a socket.
 *
 * Threads: no lock; threads that share the handle lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("notes.txt", 0);
 * if (file == NULL) return 1;
 * printf("%d\n", (int)g_file_seek(file, 0, SEEK_END)); // prints: 9
 * g_file_seek(file, 0, SEEK_SET);                      // back to the start
 * g_file_close(file);
 * @endcode
 */
G_API int64_t g_file_seek(GFile* file, int64_t offset, int whence);

/**
 * Truncates a file at its current offset, or extends it with zeros up to there.
 *
 * @param file  from g_file_open(), open for writing.
 * @return 0; -1 when `file` is null, or on an error with the reason in `errno`, which is not
 *         logged.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 * - `EINVAL`: the file is not open for writing.
 * - `EFBIG`: the size would exceed the limit of the process or of the filesystem.
 *
 * Threads: no lock; threads that share the handle lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("notes.txt", 1);
 * if (file == NULL) return 1;
 * g_file_seek(file, 3, SEEK_SET);
 * g_file_truncate(file);
 * g_file_close(file);
 * printf("%d\n", (int)g_file_size("notes.txt")); // prints: 3
 * @endcode
 */
G_API int g_file_truncate(GFile* file);

/**
 * Returns the size of a file.
 *
 * @param filename  path of a file of any type; not null. Links are followed.
 * @return the size in bytes; -1 when `filename` is null, or, with nothing logged and the reason in
 *         `errno`, when there is no such file or it cannot be examined.
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 * - `ENOENT`: there is no such file.
 * - `EACCES`: a directory on the way may not be searched.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * printf("%d\n", (int)g_file_size("notes.txt")); // prints: 9
 * printf("%d\n", (int)g_file_size("no such file")); // prints: -1
 * @endcode
 */
G_API int64_t g_file_size(const char* filename);

/**
 * Returns whether a path is a regular file, or a link to one.
 *
 * @param filename  path; not null.
 * @return 1 if it is; 0 for anything else, for a missing file, or when `filename` is null.
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * printf("%d\n", g_file_exist("notes.txt")); // prints: 1
 * printf("%d\n", g_file_exist("/"));         // prints: 0
 * @endcode
 */
G_API int g_file_exist(const char* filename);

/**
 * Joins a directory and a file name, if the result is an existing regular file.
 *
 * @param dir       put before `filename` with a "/", unless it is null or `filename` begins with
 *                  "/".
 * @param filename  name or path of the file; not null.
 * @return the path, a heap string that the caller releases with free(); null when it is not a
 *         regular file, when `filename` is null, or, with nothing logged, when memory is exhausted.
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *path = g_file_exist_path(".", "notes.txt");
 * if (path != NULL) puts(path); // prints: ./notes.txt
 * free(path);
 * @endcode
 */
G_API char* g_file_exist_path(const char* dir, const char* filename);

/**
 * Reads a whole file of less than 2 GiB into memory, with one read().
 *
 * @param filename  path of the file; not null.
 * @param len       receives the size in bytes; not null. Untouched on failure.
 * @return the content, followed by one NUL byte, a heap block that the caller releases with free();
 *         null on failure. A file that is missing, or has 2 GiB or more, gives null without a log
 *         line.
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 * - ``'len != NULL' FAILED.``: critical; `len` is null.
 * - ``can't open file '%s' - %s``: warning, with the file name and the system's text; open()
 *   failed.
 * - ``can't read file '%s'.``: warning, with the file name; a read error, or the read returned
 *   another number of bytes than the size.
 * - ``failed to allocate %u bytes.``: warning; memory is exhausted.
 *
 * Threads: any thread. A cancellation point.
 *
 * @par Notes
 * The size is taken before the read, so files that report none (those in /proc, pipes) give an
 * empty block.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * int64_t size = 0;
 * char *text = g_file_read_buf("notes.txt", &size);
 * if (text == NULL) return 1;
 * printf("%d bytes, beginning with %.3s\n", (int)size, text);
 * // prints: 9 bytes, beginning with one
 * free(text);
 * @endcode
 */
G_API char* g_file_read_buf(const char* filename, int64_t* len);

/**
 * Overwrites the start of an existing file, with one write().
 *
 * @param filename  path of an existing file; not null.
 * @param buf       `len` bytes; not null.
 * @param len       number of bytes, above 0.
 * @return 0; -1 on a failed check, when the file cannot be opened, or when not all bytes were
 *         written.
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 * - ``'buf != NULL' FAILED.``: critical; `buf` is null.
 * - ``'len > 0' FAILED.``: critical; `len` is 0 or negative.
 * - ``can't open file '%s' - %s``: warning, with the file name and the system's text; open()
 *   failed.
 * - ``%s - %d.``: warning, with the system's text and the error number; write() failed.
 * - ``failed to write file '%s'.``: warning, with the file name; not all bytes were written.
 *
 * Threads: any thread. A cancellation point.
 *
 * @par Notes
 * - The file is neither created nor truncated. The rest of a longer file stays after the new text:
 *   "ab" into a file that holds "xyz" leaves "abz". To replace the content use g_file_replace() of
 *   <groundwork/safe.h>, or g_file_open() with mode 2.
 * - Nothing is synced to the disk: a power cut within seconds can lose the text.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * if (g_file_write_buf("notes.txt", "ONE", 3) != 0) return 1; // the reason has been logged
 * int64_t size = 0;
 * char *text = g_file_read_buf("notes.txt", &size);
 * if (text != NULL) printf("%.4s%d bytes\n", text, (int)size);
 * // prints: ONE
 * // prints: 9 bytes
 * free(text);
 * @endcode
 */
G_API int g_file_write_buf(const char* filename, const void* buf, int64_t len);

/**
 * @name Locks
 * POSIX record locks on the whole file, which hold between processes only. They never wait and log
 * nothing.
 *
 * @warning Two GFiles of one process never conflict, and closing any descriptor of the file
 * anywhere in the process drops all of the process's locks on it.
 */
/** @{ */

/**
 * Takes a shared lock on a whole file. The call does not wait.
 *
 * @param file  from g_file_open(), open for reading.
 * @return 0; -1 when `file` is null, or, with nothing logged, when the lock is refused, with the
 *         reason in `errno`.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 * - `EAGAIN`: another process has an exclusive lock. Some systems give `EACCES`.
 * - `EBADF`: the file is not open for reading.
 * - `ENOLCK`: the system has no lock left.
 *
 * Threads: any thread. The lock belongs to the process.
 *
 * Standard: fcntl() with F_SETLK, POSIX.
 *
 * @par Notes
 * Two handles of one process never conflict, and closing any descriptor of the file in the process
 * drops the lock.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("notes.txt", 0);
 * if (file == NULL) return 1;
 * if (g_file_lock_read(file) == 0) puts("no writer now"); // prints: no writer now
 * g_file_close(file);                                     // drops the lock, too
 * @endcode
 */
G_API int g_file_lock_read(GFile* file);

/**
 * Takes an exclusive lock on a whole file. The call does not wait.
 *
 * @param file  from g_file_open(), open for writing.
 * @return 0; -1 when `file` is null, or, with nothing logged, when the lock is refused, with the
 *         reason in `errno`.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 * - `EAGAIN`: another process has a lock on the file. Some systems give `EACCES`.
 * - `EBADF`: the file is not open for writing.
 * - `ENOLCK`: the system has no lock left.
 *
 * Threads: any thread. The lock belongs to the process.
 *
 * Standard: fcntl() with F_SETLK, POSIX.
 *
 * @par Notes
 * Two handles of one process never conflict, and closing any descriptor of the file in the process
 * drops the lock.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("notes.txt", 1); // does not empty it
 * if (file == NULL) return 1;
 * if (g_file_lock_write(file) == 0) puts("it is ours"); // prints: it is ours
 * g_file_close(file);                                   // drops the lock, too
 * @endcode
 */
G_API int g_file_lock_write(GFile* file);

/**
 * Releases the lock of the process on a whole file.
 *
 * @param file  from g_file_open().
 * @return 0, also when there was no lock; -1 when `file` is null, or, with nothing logged, on an
 *         error with the reason in `errno`.
 *
 * @par Errors
 * - ``'file != NULL' FAILED.``: critical; `file` is null.
 *
 * Threads: any thread. The lock belongs to the process, so another thread may have taken it.
 *
 * Standard: fcntl() with F_SETLK, POSIX.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("notes.txt", 1);
 * if (file == NULL) return 1;
 * if (g_file_lock_write(file) == 0) {
 *   g_file_write(file, "ONE", 3);
 *   g_file_unlock(file);
 * }
 * g_file_close(file);
 * @endcode
 */
G_API int g_file_unlock(GFile* file);

/** @} */

/**
 * Removes a file or a link, but not a directory.
 *
 * @param path  path; not null, unchecked.
 * @return 0; -1 on an error.
 *
 * @par Errors
 * - ``%s - %s.``: warning, with the system's text and the path; unlink() failed.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * printf("%d\n", g_file_remove("notes.txt")); // prints: 0
 * printf("%d\n", g_file_exist("notes.txt"));  // prints: 0
 * @endcode
 */
G_API int g_file_remove(const char* path);

/**
 * Renames a file, as rename() does. An existing file of the new name is replaced.
 *
 * @param old_path  path of the file; not null, unchecked.
 * @param new_path  its new path, on the same filesystem; not null, unchecked.
 * @return 0; -1 on an error.
 *
 * @par Errors
 * - ``%s - (%s -> %s).``: warning, with the system's text and both paths; rename() failed.
 *
 * Threads: any thread.
 *
 * @par Notes
 * Nothing is synced to the disk: a power cut within seconds can leave an empty file.
 * g_file_replace() of <groundwork/safe.h> prevents that.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * if (g_file_rename("notes.txt", "old.txt") == 0) puts("renamed"); // prints: renamed
 * printf("%d\n", g_file_exist("old.txt"));                         // prints: 1
 * @endcode
 */
G_API int g_file_rename(const char* old_path, const char* new_path);

/**
 * Creates an empty file with permissions 0644 (less the umask) if there is none. The times of an
 * existing file stay as they are.
 *
 * @param filename  path of the file; not null.
 * @return 0, also when the file could not be created, which is not logged; -1 when `filename` is
 *         null, or when the system assigned descriptor 0, that is, in a process with standard input
 *         closed (the file exists all the same).
 *
 * @par Errors
 * - ``'filename != NULL' FAILED.``: critical; `filename` is null.
 *
 * Threads: any thread. A cancellation point.
 *
 * @par Notes
 * The result does not say whether the file exists now. Ask g_file_exist(), or create it with
 * g_file_replace() of <groundwork/safe.h> and a length of 0.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_file_touch("marker");
 * if (g_file_exist("marker")) puts("it is there"); // prints: it is there
 * @endcode
 */
G_API int g_file_touch(const char* filename);

/**
 * Copies the content of a file. The copy has permissions 0644 (less the umask) and its own owner
 * and times; an existing file is emptied first.
 *
 * @param old_path  path of the file; not null.
 * @param new_path  path of the copy; not null.
 * @return 0; -1 when an argument is null, when either file cannot be opened, or when not everything
 *         could be written. The copy then holds what was written until then.
 *
 * @par Errors
 * - ``'old_path != NULL' FAILED.``: critical; `old_path` is null.
 * - ``'new_path != NULL' FAILED.``: critical; `new_path` is null.
 * - ``can't open file '%s' - %s``: warning, with the file name and the system's text; open()
 *   failed.
 * - ``%s - %d.``: warning, with the system's text and the error number; write() failed.
 * - ``failed to write file from '%s' to '%s'.``: warning, with both paths; not everything was
 *   written.
 *
 * Threads: any thread. A cancellation point.
 *
 * @par Notes
 * - A read error ends the copy silently, with result 0 and a copy that is too short.
 *   g_file_duplicate() of <groundwork/safe.h> reports it, and keeps permissions and times.
 * - Copying a file onto itself empties it.
 * - Nothing is synced to the disk: a power cut within seconds can leave an empty file.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * if (g_file_copy("notes.txt", "copy.txt") != 0) return 1; // the reason has been logged
 * printf("%d\n", (int)g_file_size("copy.txt"));            // prints: 9
 * @endcode
 */
G_API int g_file_copy(const char* old_path, const char* new_path);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
