/* SPDX-License-Identifier: MIT */
/**
 * @defgroup file Files
 * @ingroup system
 *
 * Files: handles with 64-bit offsets, whole-file locks, whole files in one call, and
 * operations by path.
 *
 * Every function that checks an argument logs a failed check as critical and returns its
 * failure value with nothing done. Failures of the system are logged as warnings where
 * that is said. Nothing is retried: a signal (`EINTR`), a short read or a short write is
 * the caller's to handle. Paths are the system's: any bytes but NUL, relative ones from
 * the working directory, symbolic links followed.
 *
 * Descriptors are opened with `O_CLOEXEC` and do not survive an exec.
 *
 * Threads: no shared state. One GFile must not be used by two threads at once without a
 * lock of the caller's.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GFile *file = g_file_open("pump.log", 2); // 2: created, or emptied
 * if (file == NULL) return 1;               // it has been logged why
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
 * @param filename  not null.
 * @param mode      0 reads; 1 writes an existing file from its start, keeping its content;
 *                  2 creates the file with permissions 0644 (less the umask) or empties
 *                  it, and writes. Any other value reads.
 * @return the file, owned by the caller. Null on a failed check; when the system refuses
 *         ("can't open file '%s' - %s", a warning with the name and the system's text);
 *         or when memory is exhausted ("failed to allocate %u bytes.", a warning).
 */
G_API GFile* g_file_open(const char* filename, int mode);

/** Closes a file and frees the handle. Drops every lock that this process holds on the
 *  same file, whichever handle took it. @param file from g_file_open(). */
G_API void g_file_close(GFile* file);

/**
 * Reads from a file once.
 *
 * @param file  open for reading.
 * @param buf   not null; room for `len` bytes.
 * @param len   bytes wanted; only its low 32 bits are used, as an unsigned count.
 * @return bytes read, which may be fewer; 0 at the end of the file; -1 on a failed check
 *         or a read error (`errno` set, nothing logged).
 */
G_API int64_t g_file_read(GFile* file, void* buf, int64_t len);

/**
 * Writes to a file once.
 *
 * @warning Beyond the process's limit for files (`RLIMIT_FSIZE`) the system raises SIGXFSZ, which
 * ends the process unless it is ignored; then the write fails with EFBIG.
 *
 * @param file  open for writing.
 * @param buf   not null; `len` bytes.
 * @param len   bytes to write; only its low 32 bits are used, as an unsigned count.
 * @return bytes written, which may be fewer; -1 on a failed check or a write error
 *         ("%s - %d.", a warning with the system's text and the error number; `errno` set).
 */
G_API int64_t g_file_write(GFile* file, const void* buf, int64_t len);

/**
 * Moves the file offset, as lseek() does.
 *
 * @param file    from g_file_open().
 * @param offset  bytes.
 * @param whence  `SEEK_SET`, `SEEK_CUR` or `SEEK_END`.
 * @return the new offset from the start; -1 on a failed check or an error (`errno` set,
 *         nothing logged).
 */
G_API int64_t g_file_seek(GFile* file, int64_t offset, int whence);

/** Cuts a file, or extends it with zeros, at its current offset. @param file open for
 *  writing. @return 0; -1 on a failed check or an error (`errno` set, nothing logged). */
G_API int g_file_truncate(GFile* file);

/** Tells the size of a file. @param filename not null; any type of file. @return its size
 *  in bytes; -1 on a failed check or when there is no such file (nothing logged). */
G_API int64_t g_file_size(const char* filename);

/** Tells whether a path is a regular file. @param filename not null. @return 1 if it is one
 *  or a link to one; 0 for anything else, for a missing file and on a failed check. */
G_API int g_file_exist(const char* filename);

/**
 * Joins a directory and a file name, if that gives an existing regular file.
 *
 * @param dir       put before `filename` with a "/", unless it is null or `filename`
 *                  begins with "/".
 * @param filename  not null.
 * @return the path, to be freed with free(); null if it is no regular file, on a failed
 *         check, or when memory is exhausted.
 */
G_API char* g_file_exist_path(const char* dir, const char* filename);

/**
 * Reads a whole file of less than 2 GiB with one read.
 *
 * @param filename  not null. The size is taken before reading, so files that report none
 *                  (those in /proc, pipes) give an empty buffer.
 * @param len       not null; receives the size in bytes. Untouched on failure.
 * @return the content, followed by one NUL byte, to be freed with free(). Null on a failed
 *         check; without a message when the file is missing or has 2 GiB or more; when it
 *         cannot be opened (logged by g_file_open()); when the read gives another count
 *         than the size ("can't read file '%s'.", a warning); when memory is exhausted
 *         ("failed to allocate %u bytes.", a warning).
 */
G_API char* g_file_read_buf(const char* filename, int64_t* len);

/**
 * Overwrites the start of an existing file with one write.
 *
 * @warning The file is neither created nor cut. A buffer shorter than the file leaves the
 * rest of the old content behind it: "ab" into a file holding "xyz" leaves "abz". For a
 * fresh file use g_file_open() with mode 2.
 *
 * @param filename  not null; must exist.
 * @param buf       not null.
 * @param len       bytes, above 0.
 * @return 0; -1 on a failed check, when the file cannot be opened (logged by
 *         g_file_open()), or when not all was written ("failed to write file '%s'.", a
 *         warning, after the one of g_file_write()).
 */
G_API int g_file_write_buf(const char* filename, const void* buf, int64_t len);

/**
 * @name Locks
 * POSIX record locks on the whole file, which hold between processes only. They
 * never wait and log nothing.
 *
 * @warning Two GFiles of one process never conflict, and closing any descriptor of the
 * file anywhere in the process drops all of the process's locks on it.
 */
/** @{ */

/** Takes a shared lock on the whole file. @param file open for reading. @return 0; -1 on a
 *  failed check, or at once when another process holds an exclusive lock (`errno`
 *  `EAGAIN` or `EACCES`). */
G_API int g_file_lock_read(GFile* file);

/** Takes an exclusive lock on the whole file. @param file open for writing. @return 0; -1
 *  on a failed check, or at once when another process holds any lock (`errno` `EAGAIN` or
 *  `EACCES`). */
G_API int g_file_lock_write(GFile* file);

/** Releases this process's lock on the whole file. @param file from g_file_open().
 *  @return 0; -1 on a failed check or an error. */
G_API int g_file_unlock(GFile* file);

/** @} */

/** Removes a file or a link (not a directory). @param path unchecked. @return 0; -1 on an
 *  error ("%s - %s.", a warning with the system's text and the path). */
G_API int g_file_remove(const char* path);

/** Renames a file, replacing an existing one, as rename() does. @param old_path unchecked.
 *  @param new_path unchecked. @return 0; -1 on an error ("%s - (%s -> %s).", a warning with
 *  the system's text and both paths). */
G_API int g_file_rename(const char* old_path, const char* new_path);

/**
 * Creates an empty file with permissions 0644 (less the umask) if there is none. The times
 * of an existing file stay as they are.
 *
 * @warning The result does not tell whether the file exists now: a failure to create it
 * returns 0 as well. Ask g_file_exist().
 *
 * @param filename  not null.
 * @return 0; -1 on a failed check, or when the system handed out descriptor 0, that is, in
 *         a process with standard input closed (the file then exists all the same).
 *         Nothing is logged but the check.
 */
G_API int g_file_touch(const char* filename);

/**
 * Copies the content of a file. The copy has permissions 0644 (less the umask) and its own
 * owner and times; an existing file is emptied first.
 *
 * @warning A read error ends the copy silently, with result 0 and a destination that is too
 * short; compare the sizes where it matters. Copying a file onto itself empties it.
 *
 * @param old_path  not null.
 * @param new_path  not null.
 * @return 0; -1 on a failed check, when either cannot be opened (logged by g_file_open()),
 *         or when not all could be written ("failed to write file from '%s' to '%s'.", a
 *         warning); the destination is then left as far as it came.
 */
G_API int g_file_copy(const char* old_path, const char* new_path);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
