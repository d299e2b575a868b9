/* SPDX-License-Identifier: MIT */
/**
 * @defgroup url Streams
 *
 * URL streams: local files, standard input and HTTP resources read through one handle.
 *
 * A program registers the modules that it wants, then opens, reads and closes streams.
 *
 * The generic functions work through the operation slots of the stream's record, which its module
 * fills in. They read no further than the stream's read limit and keep the error of the last
 * operation in `url_errno`: those that reach a module first set `url_errno` to URLERR_NONE and
 * `errno` to 0. Blocks are ordinary heap memory. Nothing is logged; the few messages go to standard
 * error, as each function says.
 *
 * A function checks its arguments only where it says so: otherwise a null stream, buffer or text
 * crashes. Counts and limits are added as unsigned 32-bit numbers.
 *
 * Threads: nothing is locked. `url_errno`, the module list, the settings and the buffers of the
 * home directory functions belong to the whole process, and a stream to one thread at a time:
 * callers take turns.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * url_add_modules(&URL_module_file, &URL_module_http, NULL);
 * URL url = url_open("notes.txt"); // or "http://host/notes.txt", or "-"
 * if (url == NULL) {
 *   fprintf(stderr, "%s\n", url_strerror(url_errno));
 *   return 1;
 * }
 * char line[256];
 * while (url_readline(url, line, sizeof line) > 0) puts(line);
 * // prints: one
 * // prints: two
 * url_close(url);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_URL_H
#define GROUNDWORK_URL_H

#include <stdint.h>
#include <stdio.h>

/** @cond As in export.h: this header needs no other of the library. */
#ifndef G_API
#if defined(__GNUC__)
#define G_API __attribute__((visibility("default")))
#else
#define G_API
#endif
#endif
/** @endcond */

#ifdef __cplusplus
extern "C" {
#endif

/** Types of the two modules, in `URL_module.type` and in the records of their streams. */
enum {
  URL_FILE = 1, /**< local files and standard input */
  URL_HTTP = 2  /**< HTTP resources */
};

/** The layer's own error codes in `url_errno`, which otherwise holds an `errno` value. */
enum {
  URLERR_NONE = 10000,            /**< no error */
  URLERR_UNKNOWN_URL = 10001,     /**< no module takes the URL */
  URLERR_NOT_PERMITTED = 10002,   /**< operation not permitted */
  URLERR_CANT_OPEN = 10003,       /**< the server sent no response */
  URLERR_INVALID_FORM = 10004,    /**< invalid URL form */
  URLERR_TOO_LONG = 10005,        /**< URL too long */
  URLERR_NO_MAIL_ADDRESS = 10006, /**< no mail address */
  URLERR_HTTP_NOT_FOUND = 10008   /**< status 404; its text is "Internal error" */
};

/** The read limit that is none. */
enum {
  URL_NO_READLIMIT = 0x7fffffff /**< the read limit of a stream that has none */
};

struct URL_record;

/** A stream: a pointer to its record. The record of every module begins with the fields of
 *  URL_record. */
typedef struct URL_record* URL;

/** Reads bytes. @param url the stream. @param buf room for them. @param n maximum number.
 *  @return the number read, 0 at the end, -1 on error. */
typedef int32_t (*URL_read_operation)(URL url, void* buf, int32_t n);
/** Reads one line, its end included, as NUL-terminated text.
 *  @param url the stream. @param buf room for it. @param n size of `buf`.
 *  @return `buf`; null at the end. */
typedef char* (*URL_gets_operation)(URL url, char* buf, int32_t n);
/** Reads one byte. @param url the stream. @return 0 to 255, or -1. */
typedef int32_t (*URL_fgetc_operation)(URL url);
/** Moves as lseek() does. @param url the stream. @param offset bytes. @param whence SEEK_SET,
 *  SEEK_CUR or SEEK_END. @return the new position, or -1. */
typedef int64_t (*URL_seek_operation)(URL url, int64_t offset, int32_t whence);
/** Returns the position. @param url the stream. @return the position in bytes. */
typedef int64_t (*URL_tell_operation)(URL url);
/** Releases what the module holds, and the record. @param url the stream. */
typedef void (*URL_close_operation)(URL url);

/** The common part of every stream's record; the module's private fields follow it. */
struct URL_record {
  int32_t type;              /**< type of the module: URL_FILE, URL_HTTP or another's */
  URL_read_operation read;   /**< not null */
  URL_gets_operation gets;   /**< null: lines are read byte by byte */
  URL_fgetc_operation fgetc; /**< null: bytes are read with url_read() */
  URL_seek_operation seek;   /**< null: the stream can only go forward, by reading */
  URL_tell_operation tell;   /**< null: the position is `nread` */
  URL_close_operation close; /**< null: url_close() complains */
  uint32_t nread;            /**< bytes consumed through the generic functions since open
                                  or the last url_set_readlimit() or url_seek() */
  uint32_t readlimit;        /**< upper bound of `nread`; URL_NO_READLIMIT for none */
  int32_t eof;               /**< 1 once url_read(), url_gets() or url_readline() found
                                  `nread` at `readlimit`; never cleared by the core */
};

/** One scheme module. Its record stays registered to the end of the process. */
typedef struct URL_module {
  int32_t type;                           /**< type of its streams; 0 disables the module */
  int32_t (*name_check)(const char* url); /**< non-zero when the module takes the URL; a
                                               module without it takes none */
  int32_t (*init)(void);                  /**< one-time initialisation, negative on failure,
                                               or null. Once it succeeded the core stores a
                                               marker function, which returns 1, here. */
  URL (*open)(const char* url);           /**< opens a stream; null on failure */
  struct URL_module* next;                /**< link, written by url_add_module() */
} URL_module;

/**
 * A stream of the file module.
 *
 * url_file_open() leaves the view empty: the stream reads its descriptor, whose position is always
 * the stream's. A program that points `data` at bytes in memory, and sets `size`, reads those
 * instead; they stay the program's. The module's records are longer than this one: do not copy
 * them.
 */
typedef struct URL_file {
  struct URL_record common; /**< type URL_FILE */
  const uint8_t* data;      /**< the view in memory; null to read the descriptor */
  uint32_t size;            /**< bytes in the view */
  int64_t position;         /**< read position in the view */
  int32_t fd;               /**< the descriptor; 0 for standard input, -1 for none */
} URL_file;

/** A stream of the HTTP module. */
typedef struct URL_http {
  struct URL_record common; /**< type URL_HTTP; no `seek`, no `tell` */
  uint32_t peer_address;    /**< IPv4 address of the server in network byte order; 0 for an
                                 IPv6 server */
  FILE* stream;             /**< buffered stream over the socket; owns its descriptor */
} URL_http;

/** @name Settings and state */
/** @{ */

/** Error of the last URL operation: an `errno` value or a URLERR_ code; 0 at start. */
G_API extern int32_t url_errno;

/** The byte, 10 at start, that ends a line where url_gets() reads byte by byte and where a
 *  file stream reads its view in memory. */
G_API extern int32_t url_newline_code;

/** Version of the layer: "1.9.5". */
G_API extern const char* url_lib_version;

/** A setting that programs share; 0 at start. The layer does not read it. */
G_API extern int32_t uudecode_unquote_html;

/** A setting that programs share; null at start. The layer does not read it. */
G_API extern char* user_mailaddr;

/** @} */

/** @name Modules */
/** @{ */

/**
 * Registers a module for streams. It is asked before all modules that are registered already.
 *
 * @param m  the module's record, not null, unchecked; not owned. It must live as long as the
 *           process.
 *
 * Threads: not locked. Register at start-up, before other threads open streams.
 *
 * @par Notes
 * Registering a module twice makes the list a ring, in which a look-up for a URL that no module
 * takes never ends.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * url_add_module(&URL_module_file);
 * URL url = url_open("notes.txt");
 * if (url == NULL) return 1;
 * url_close(url);
 * @endcode
 */
G_API void url_add_module(URL_module* m);

/**
 * Registers modules for streams, in the order given, so that the last one is asked first.
 *
 * @param first  the first module's record, or null for none; not owned. It must live as long as the
 *               process.
 * @param ...    further `URL_module *`, ended by a null pointer. Write `(URL_module *)NULL` where
 *               NULL may be an int.
 *
 * Threads: not locked. Register at start-up, before other threads open streams.
 *
 * @par Notes
 * Registering a module twice makes the list a ring, in which a look-up for a URL that no module
 * takes never ends.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * url_add_modules(&URL_module_file, &URL_module_http, (URL_module *)NULL);
 * printf("%d\n", url_check_type("http://host/") == URL_HTTP); // prints: 1
 * @endcode
 */
G_API void url_add_modules(URL_module* first, ...);

/**
 * Returns which module would open a URL. `url_errno` and `errno` stay as they are.
 *
 * @param url  the text, NUL-terminated, that the modules' name checks receive; not null, unchecked.
 * @return the type of the module, such as URL_FILE or URL_HTTP; -1 when no module takes the URL.
 *
 * Threads: any thread, while no module is being registered.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * url_add_modules(&URL_module_file, &URL_module_http, NULL);
 * printf("%d\n", url_check_type("http://host/") == URL_HTTP); // prints: 1
 * printf("%d\n", url_check_type("/etc/hosts") == URL_FILE);   // prints: 1
 * printf("%d\n", url_check_type("ftp://host/"));              // prints: -1
 * @endcode
 */
G_API int32_t url_check_type(const char* url);

/** @} */

/** @name Streams */
/** @{ */

/**
 * Opens a stream with the most recently registered module that takes the URL.
 *
 * @param url  for example "http://host/path", "file:/etc/hosts", "~/a.txt" or "-", NUL-terminated;
 *             not null, unchecked.
 * @return the stream, owned by the caller and released with url_close(); null on failure, with the
 *         reason in `url_errno` and `errno`.
 *
 * @par Errors
 * `url_errno` is one of these, or what the module's open function set. When the module's
 * initialisation fails, both variables stay as the initialisation left them, and the next
 * url_open() tries it again.
 * - `URLERR_UNKNOWN_URL`: no module takes the URL; `errno` is `ENOENT`.
 *
 * Threads: any thread, one at a time: `url_errno` and the modules belong to the process.
 *
 * @par Notes
 * For what the modules do with the text, and what their streams can surprise with, see
 * url_file_open() and url_http_open().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * url_add_modules(&URL_module_file, &URL_module_http, NULL);
 * URL url = url_open("http://localhost:8080/notes.txt");
 * if (url == NULL) {
 *   fprintf(stderr, "%s\n", url_strerror(url_errno));
 *   return 1;
 * }
 * url_close(url);
 * @endcode
 */
G_API URL url_open(const char* url);

/**
 * Reads bytes from a stream.
 *
 * @param url  a stream, or null.
 * @param buf  room for `n` bytes, or null.
 * @param n    maximum number of bytes; the read limit lowers it.
 * @return the number of bytes read. 0 at the end of the stream, and at the read limit, which also
 *         sets `eof`. 0 for a null argument or an `n` below 1, which changes nothing, not even
 *         `url_errno`. -1 on error.
 *
 * @par Errors
 * `url_errno` is set to URLERR_NONE and `errno` to 0 first; after an error they hold what the
 * module set, for example:
 * - `EIO`: an input error.
 * - `EISDIR`: the stream is a directory.
 * - `ETIMEDOUT`: the limit of url_http_set_timeout() has passed.
 * - `EINTR`: a signal came before any byte.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * char text[4] = "";
 * if (url_read(url, text, 3) == 3) puts(text); // prints: one
 * url_close(url);
 * @endcode
 */
G_API int32_t url_read(URL url, void* buf, int32_t n);

/**
 * Reads bytes from a stream, and reads again when a signal interrupts it.
 *
 * @param url  a stream, or null.
 * @param buf  room for `n` bytes, or null.
 * @param n    maximum number of bytes; the read limit lowers it.
 * @return the number of bytes read. 0 at the end of the stream, and at the read limit, which also
 *         sets `eof`; 0 for a null argument or an `n` below 1. -1 on any error but `EINTR`.
 *
 * @par Errors
 * `url_errno` is set to URLERR_NONE and `errno` to 0 first; after an error they hold what the
 * module set, for example:
 * - `EIO`: an input error.
 * - `EISDIR`: the stream is a directory.
 * - `ETIMEDOUT`: the limit of url_http_set_timeout() has passed.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * char text[4] = "";
 * if (url_safe_read(url, text, 3) == 3) puts(text); // prints: one
 * url_close(url);
 * @endcode
 */
G_API int32_t url_safe_read(URL url, void* buf, int32_t n);

/**
 * Reads exactly `n` bytes from a stream, unless it ends or fails before.
 *
 * @param url  a stream, or null.
 * @param buf  room for `n` bytes, or null.
 * @param n    number of bytes.
 * @return the number of bytes read, `n` when complete; 0 or -1 when the first read returned that:
 *         the end of the stream, the read limit, a null argument or an `n` below 1 for 0, an error
 *         for -1.
 *
 * @par Errors
 * `url_errno` is set to URLERR_NONE and `errno` to 0 first; after an error they hold what the
 * module set, for example:
 * - `EIO`: an input error.
 * - `EISDIR`: the stream is a directory.
 * - `ETIMEDOUT`: the limit of url_http_set_timeout() has passed.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Notes
 * After fewer than `n` bytes the result does not say whether the stream ended or failed. On a file
 * stream `url_errno` does. On an HTTP stream compare `nread` with `readlimit`, if the server gave a
 * length.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * char text[10] = "";
 * printf("%d\n", (int)url_nread(url, text, 9)); // prints: 9
 * url_close(url);
 * @endcode
 */
G_API int32_t url_nread(URL url, void* buf, int32_t n);

/**
 * Reads one line from a stream and keeps its end.
 *
 * The module's line reader is used if it has one; `nread` then grows by the length of the text, so
 * bytes after a NUL in the line are not counted. Otherwise the line is read byte by byte and ends
 * with `url_newline_code`.
 *
 * @param url  a stream; not null, unchecked.
 * @param buf  room for `n` bytes; receives the text, NUL-terminated. Not null, unchecked.
 * @param n    size of `buf` in bytes. 1 gives an empty text. Below 1 is a mistake that is not
 *             detected: a file stream still stores its NUL.
 * @return `buf`; null at the end of the stream, on failure, and at the read limit, where
 *         `url_errno` and `eof` stay as they are. (`eof` is set when the limit is met inside a line
 *         that is read byte by byte.)
 *
 * @par Errors
 * `errno` is set to 0 and `url_errno` to URLERR_NONE first. When a read fails, `errno` has the
 * reason, for example:
 * - `EISDIR`: the stream is a directory.
 * - `EIO`: an input error.
 * - `ETIMEDOUT`: in `url_errno`, too; the limit of url_http_set_timeout() has passed.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Notes
 * - On a file stream, a read that fails counts as the byte that `buf` held before. A directory can
 *   be opened, and gives lines of the buffer's old content up to the read limit, which can be 2 GiB
 *   away. Ask g_dir_exist() first, or set `errno` to 0 before and look at it.
 * - On a file stream, a last line without line end is followed by one stale byte. url_readline()
 *   has neither problem.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * char line[256];
 * while (url_gets(url, line, sizeof line) != NULL) {
 *   if (line[0] != '\n') fputs(line, stdout);
 * }
 * // prints: one
 * // prints: two
 * url_close(url);
 * @endcode
 */
G_API char* url_gets(URL url, char* buf, int32_t n);

/**
 * Reads the next line of a stream that is not empty and strips its end: a carriage return or a line
 * feed, whatever `url_newline_code` is. Empty lines are skipped.
 *
 * @param url  a stream; its `gets` slot is not used. Not null, unchecked.
 * @param buf  room for `n` bytes; receives the text, NUL-terminated. At the end of the stream it is
 *             not terminated. Not null, unchecked.
 * @param n    size of `buf` in bytes. 1 gives an empty text; below 1 `buf` is left alone.
 * @return the length of the text in bytes; 0 at the end of the stream, at the read limit, on
 *         failure, and for an `n` below 2.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Notes
 * A line that is longer than `n` - 1 bytes comes in pieces.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * char line[256];
 * while (url_readline(url, line, sizeof line) > 0) puts(line);
 * // prints: one
 * // prints: two
 * url_close(url);
 * @endcode
 */
G_API int32_t url_readline(URL url, char* buf, int32_t n);

/**
 * Reads one byte from a stream.
 *
 * @param url  a stream; not null, unchecked.
 * @return 0 to 255; -1 at the end of the stream, on error, and at the read limit, where `url_errno`
 *         and `eof` stay as they are.
 *
 * @par Errors
 * `url_errno` is set to URLERR_NONE and `errno` to 0 first; after an error they hold what the
 * module set. Only HTTP streams set `url_errno`.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Notes
 * On a stream whose module has no `fgetc` slot each byte counts twice in `nread`, and the last byte
 * before the read limit is refused. Both modules of the library have one.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * printf("%c\n", (int)url_fgetc(url)); // prints: o
 * url_close(url);
 * @endcode
 */
G_API int32_t url_fgetc(URL url);

/**
 * Moves a stream to another position.
 *
 * A stream without a `seek` slot, such as an HTTP stream or standard input, only moves forward, by
 * reading, and not past its end; its read limit is lifted during the move.
 *
 * @param url     a stream; not null, unchecked.
 * @param offset  bytes, relative to what `whence` says.
 * @param whence  SEEK_SET for the start, SEEK_CUR for the current position, SEEK_END for the end of
 *                the stream.
 * @return the new position in bytes, with `nread` restarted at 0; on a stream without a `seek`
 *         slot, the position from BEFORE the move. -1 on failure.
 *
 * @par Errors
 * - `EPERM`: in `errno` and `url_errno`; the stream has no `seek` slot and the move cannot be done
 *   by reading.
 * - `EINVAL`: in `errno`; the position would be negative, or `whence` is none of the three.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Notes
 * On a stream without a `seek` slot the result looks like that of a failed move. Ask url_tell().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * printf("%d\n", (int)url_seek(url, 5, SEEK_SET)); // prints: 5
 * char line[256];
 * if (url_readline(url, line, sizeof line) > 0) puts(line); // prints: two
 * url_close(url);
 * @endcode
 */
G_API int64_t url_seek(URL url, int64_t offset, int32_t whence);

/**
 * Returns the position of a stream. `url_errno` is set to URLERR_NONE and `errno` to 0.
 *
 * @param url  a stream; not null, unchecked.
 * @return the position in bytes: what the `tell` slot of the stream returns, or `nread` if it has
 *         none; -1 on failure, as on a pipe.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * url_fgetc(url);
 * printf("%d\n", (int)url_tell(url)); // prints: 1
 * url_close(url);
 * @endcode
 */
G_API int64_t url_tell(URL url);

/**
 * Discards bytes of a stream, within the read limit: by moving the stream, or by reading if it
 * cannot be moved.
 *
 * @param url  a stream; not null, unchecked.
 * @param n    number of bytes. A negative number moves a stream that has a `seek` slot back, and
 *             does nothing to another.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * url_skip(url, 5);
 * char line[256];
 * if (url_readline(url, line, sizeof line) > 0) puts(line); // prints: two
 * url_close(url);
 * @endcode
 */
G_API void url_skip(URL url, int64_t n);

/**
 * Moves a stream that has a `seek` slot to its start; `nread` stays, so the read limit may already
 * be used up. On another stream only `nread` returns to 0: reads go on at the current position,
 * with the limit renewed.
 *
 * @param url  a stream; not null, unchecked.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Notes
 * An HTTP stream is not read again from the start: the second pass begins where the first one
 * ended. Open it anew.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * url_fgetc(url);
 * url_rewind(url);
 * printf("%c\n", (int)url_fgetc(url)); // prints: o
 * url_close(url);
 * @endcode
 */
G_API void url_rewind(URL url);

/**
 * Limits what can still be read from a stream, and restarts `nread` at 0. `eof` stays.
 *
 * @param url    a stream; not null, unchecked.
 * @param limit  bytes from the current position; negative for no limit.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * char text[10] = "";
 * url_set_readlimit(url, 3);
 * printf("%d\n", (int)url_nread(url, text, 9)); // prints: 3
 * url_close(url);
 * @endcode
 */
G_API void url_set_readlimit(URL url, int32_t limit);

/**
 * Allocates the record of a stream; for the open functions of modules.
 *
 * @param size  bytes, the common part included; a smaller size is raised to that of the common
 *              part.
 * @return the record, filled with zeros except for its read limit, URL_NO_READLIMIT. The module
 *         owns it, and its `close` slot releases it with free(). Null when memory is exhausted, or
 *         when `size` is negative.
 *
 * @par Errors
 * - `ENOMEM`: in `url_errno` and `errno`; memory is exhausted, or `size` is negative.
 *
 * Threads: any thread, one at a time: `url_errno` belongs to the process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * static void close_record(URL url) {
 *   free(url);
 * }
 *
 * URL url = alloc_url(sizeof(struct URL_record));
 * if (url == NULL) return 1;
 * url->type = 7;
 * url->close = close_record;
 * url_close(url);
 * @endcode
 */
G_API URL alloc_url(int32_t size);

/**
 * Ends a stream and releases its record. `errno` is preserved.
 *
 * @param url  a stream, invalid afterwards; null is reported.
 *
 * @par Errors
 * Lines on standard error:
 * - ``URL stream structure is NULL?``: `url` is null.
 * - ``URL Error: Already URL is closed (type=%d)``: with the type of the record; it has no `close`
 *   slot and is left alone.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * url_close(url);
 * @endcode
 */
G_API void url_close(URL url);

/**
 * Returns the text of an error of streams.
 *
 * @param code  a value of `url_errno`: an `errno` value or a URLERR_ code.
 * @return the text, NUL-terminated, which stays the library's: that of strerror() up to 10000,
 *         valid until the thread's next strerror(); "Internal error" from 10007 on.
 *
 * Threads: any thread.
 *
 * @par Notes
 * URLERR_HTTP_NOT_FOUND, a status of 404, has no text of its own: it is "Internal error".
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * puts(url_strerror(URLERR_UNKNOWN_URL)); // prints: Unknown URL
 * @endcode
 */
G_API const char* url_strerror(int32_t code);

/**
 * Reads a stream into a new block of memory.
 *
 * @param url      a stream; not null, unchecked.
 * @param size     maximum number of bytes, which is also the size of the block.
 * @param len_out  receives the number of bytes read, 0 when the result is null; may be null.
 * @return the block, without a NUL after the content, owned by the caller and released with free().
 *         Null when `size` is 0 or negative, at the end of the stream, and when memory is
 *         exhausted. When the first read fails, the block is returned with undefined content, and
 *         `*len_out` is -1.
 *
 * @par Errors
 * `url_errno` is set to URLERR_NONE and `errno` to 0 first; after an error they hold what the
 * module set, for example:
 * - `EIO`: an input error.
 * - `EISDIR`: the stream is a directory.
 * - `ETIMEDOUT`: the limit of url_http_set_timeout() has passed.
 * - `ENOMEM`: in `errno`; memory is exhausted, or `size` is negative.
 *
 * Threads: any thread, one at a time: a stream belongs to one thread, and `url_errno` to the
 * process.
 *
 * @par Notes
 * A negative size does not mean "to the end". Pass a size.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * int32_t length = 0;
 * char *text = url_dump(url, 100, &length);
 * if (text != NULL && length > 0) printf("%d bytes\n", (int)length); // prints: 9 bytes
 * free(text);
 * url_close(url);
 * @endcode
 */
G_API void* url_dump(URL url, int32_t size, int32_t* len_out);

/** @} */

/**
 * @defgroup url_socket Sockets
 *
 * A connect with a time limit, and the system's calls under names of the library: what a module for
 * another scheme needs.
 *
 * Descriptors and streams belong to the caller. Nothing is checked and nothing is logged.
 *
 * Threads: like the system's calls, except for open_socket().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * char line[80];
 * int32_t fd = open_socket("localhost", 8080, NULL); // within 5 seconds
 * FILE *stream = fd < 0 ? NULL : socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_write(fd, "GET /notes.txt HTTP/1.0\r\n\r\n", 27);
 * if (socket_fgets(line, sizeof line, stream) != NULL) printf("%.4s\n", line); // prints: HTTP
 * socket_fclose(stream); // closes the descriptor, too
 * @endcode
 *
 * @{
 */

/**
 * Connects to a TCP server within 5 seconds once its address is known. IPv4 is used if the host has
 * such an address, else IPv6.
 *
 * @param host      host name or numeric address, NUL-terminated; not null, unchecked.
 * @param port      port; its low 16 bits count.
 * @param addr_out  receives the server's IPv4 address in network byte order, 0 for IPv6; may be
 *                  null. Untouched when the name cannot be resolved.
 * @return the descriptor of the socket, blocking and close-on-exec, owned by the caller; -1 on
 *         failure. `url_errno` is left alone.
 *
 * @par Errors
 * Not every failure sets `errno`. Lines on standard error:
 * - ``Connect error : %s``: with the system's text; the server refused after the wait.
 * - ``getsockopt failed : %s``: with the system's text; the state of the connection cannot be read.
 *
 * Threads: one at a time, since it uses gethostbyname2(), whose result belongs to the process.
 *
 * @par Notes
 * The look-up of the name has no limit of its own; see resolv.conf(5), "timeout".
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * if (fd < 0) return 1;
 * FILE *stream = socket_fdopen(fd, "rb");
 * if (stream != NULL) socket_fclose(stream); // closes the descriptor, too
 * @endcode
 */
G_API int32_t open_socket(const char* host, int32_t port, uint32_t* addr_out);

/**
 * Writes to a socket or another descriptor, as write() does.
 *
 * @param fd   descriptor of the socket.
 * @param buf  `len` bytes; not null.
 * @param len  number of bytes.
 * @return the number of bytes written, which may be fewer; -1 on failure, with the reason in
 *         `errno`. A peer that has closed raises no SIGPIPE.
 *
 * @par Errors
 * - `EPIPE`: the peer has closed.
 * - `EINTR`: a signal came before any byte.
 * - `EBADF`: `fd` is not open.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * FILE *stream = fd < 0 ? NULL : socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_write(fd, "GET /notes.txt HTTP/1.0\r\n\r\n", 27);
 * char line[80];
 * if (socket_fgets(line, sizeof line, stream) != NULL) printf("%.4s\n", line); // prints: HTTP
 * socket_fclose(stream);
 * @endcode
 */
G_API int64_t socket_write(int fd, const void* buf, int64_t len);

/**
 * Ends one or both directions of a connection, as shutdown() does.
 *
 * @param fd   descriptor of the socket.
 * @param how  SHUT_RD for receiving, SHUT_WR for sending, SHUT_RDWR for both.
 * @return 0; -1 on failure, with the reason in `errno`.
 *
 * @par Errors
 * - `ENOTCONN`: the socket is not connected.
 * - `ENOTSOCK`: `fd` is not a socket.
 * - `EBADF`: `fd` is not open.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * #include <sys/socket.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * FILE *stream = fd < 0 ? NULL : socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_write(fd, "GET /notes.txt HTTP/1.0\r\n\r\n", 27);
 * socket_shutdown(fd, SHUT_WR); // the request is complete
 * socket_fclose(stream);
 * @endcode
 */
G_API int socket_shutdown(int fd, int how);

/**
 * Puts a buffered stream over a socket, as fdopen() does.
 *
 * @param fd    descriptor of the socket, which the stream owns on success.
 * @param mode  mode of fopen(), such as "rb"; not null.
 * @return the stream, owned by the caller and released with socket_fclose(); null on failure, with
 *         the reason in `errno`. The descriptor is then still the caller's.
 *
 * @par Errors
 * - `ENOMEM`: memory is exhausted.
 * - `EBADF`: `fd` is not open.
 * - `EINVAL`: `mode` is not a mode.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * if (fd < 0) return 1;
 * FILE *stream = socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_fclose(stream); // closes the descriptor, too
 * @endcode
 */
G_API FILE* socket_fdopen(int fd, const char* mode);

/**
 * Reads a line from a buffered stream, as fgets() does: up to a line feed, which is kept, or `n` -
 * 1 bytes.
 *
 * @param buf     room for `n` bytes; receives the text, NUL-terminated. Not null.
 * @param n       size of `buf` in bytes.
 * @param stream  from socket_fdopen(); not null.
 * @return `buf`; null at the end of the stream, and on error with the reason in `errno`.
 *
 * Threads: any thread; the C library locks the stream.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * FILE *stream = fd < 0 ? NULL : socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_write(fd, "GET /notes.txt HTTP/1.0\r\n\r\n", 27);
 * char line[80];
 * if (socket_fgets(line, sizeof line, stream) != NULL) printf("%.4s\n", line); // prints: HTTP
 * socket_fclose(stream);
 * @endcode
 */
G_API char* socket_fgets(char* buf, int n, FILE* stream);

/**
 * Reads one byte from a buffered stream, as getc() does.
 *
 * @param stream  from socket_fdopen(); not null.
 * @return 0 to 255; EOF at the end of the stream, and on error with the reason in `errno`.
 *
 * Threads: any thread; the C library locks the stream.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * FILE *stream = fd < 0 ? NULL : socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_write(fd, "GET /notes.txt HTTP/1.0\r\n\r\n", 27);
 * printf("%c\n", socket_fgetc(stream)); // prints: H
 * socket_fclose(stream);
 * @endcode
 */
G_API int socket_fgetc(FILE* stream);

/**
 * Reads bytes from a buffered stream, as fread() does.
 *
 * @param buf     room for `n` bytes; not null.
 * @param n       maximum number of bytes.
 * @param stream  from socket_fdopen(); not null.
 * @return the number of bytes read; fewer than `n` at the end of the stream, and on error with the
 *         reason in `errno`.
 *
 * Threads: any thread; the C library locks the stream.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * FILE *stream = fd < 0 ? NULL : socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_write(fd, "GET /notes.txt HTTP/1.0\r\n\r\n", 27);
 * char text[5] = "";
 * if (socket_fread(text, 4, stream) == 4) puts(text); // prints: HTTP
 * socket_fclose(stream);
 * @endcode
 */
G_API int64_t socket_fread(void* buf, int64_t n, FILE* stream);

/**
 * Writes bytes to a buffered stream, as fwrite() does.
 *
 * @param buf     `n` bytes; not null.
 * @param n       number of bytes.
 * @param stream  from socket_fdopen(), open for writing; not null.
 * @return the number of bytes written; fewer than `n` on error, with the reason in `errno`.
 *
 * Threads: any thread; the C library locks the stream.
 *
 * @par Notes
 * When the buffer is written to a socket whose peer has closed, the system raises SIGPIPE, which
 * ends the process unless it is ignored. socket_write() raises none.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * if (fd < 0) return 1;
 * FILE *stream = socket_fdopen(fd, "wb");
 * if (stream == NULL) return 1;
 * socket_fwrite("GET / HTTP/1.0\r\n\r\n", 18, stream);
 * socket_fflush(stream); // sends it
 * socket_fclose(stream);
 * @endcode
 */
G_API int64_t socket_fwrite(const void* buf, int64_t n, FILE* stream);

/**
 * Closes a buffered stream and its descriptor, as fclose() does.
 *
 * @param stream  from socket_fdopen(), invalid afterwards; not null.
 * @return 0; EOF when what was buffered could not be written, with the reason in `errno`. The
 *         stream is closed all the same.
 *
 * Threads: no other thread may use the stream during the call or afterwards.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * if (fd < 0) return 1;
 * FILE *stream = socket_fdopen(fd, "rb");
 * if (stream == NULL) return 1;
 * socket_fclose(stream); // closes the descriptor, too
 * @endcode
 */
G_API int socket_fclose(FILE* stream);

/**
 * Writes out what a stream has buffered, as fflush() does.
 *
 * @param stream  from socket_fdopen(), open for writing; not null.
 * @return 0; EOF on error, with the reason in `errno`.
 *
 * Threads: any thread; the C library locks the stream.
 *
 * @par Notes
 * When the peer has closed, the system raises SIGPIPE, which ends the process unless it is ignored.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * int32_t fd = open_socket("localhost", 8080, NULL);
 * if (fd < 0) return 1;
 * FILE *stream = socket_fdopen(fd, "wb");
 * if (stream == NULL) return 1;
 * socket_fwrite("GET / HTTP/1.0\r\n\r\n", 18, stream);
 * socket_fflush(stream); // sends it
 * socket_fclose(stream);
 * @endcode
 */
G_API int socket_fflush(FILE* stream);

/** @} */

/**
 * @defgroup url_http HTTP
 *
 * The module for "http://", its settings, and its open functions, which also work without
 * registering the module.
 *
 * Threads: the settings belong to the whole process; callers take turns.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * url_user_agent = "waterworks/1.0";
 * URL url = url_http_open("http://localhost:8080/notes.txt");
 * if (url == NULL) {
 *   fprintf(stderr, "%s\n", url_strerror(url_errno));
 *   return 1;
 * }
 * char text[256];
 * int32_t length = url_nread(url, text, sizeof text - 1); // at most; "Content-Length:" ends it
 * if (length > 0) printf("%.3s\n", text);                 // prints: one
 * url_close(url);
 * @endcode
 *
 * @{
 */

/** Host that every HTTP request goes to; null, as at start, for none. Not owned. */
G_API extern const char* url_http_proxy_host;

/** Port of the proxy; 0 at start. */
G_API extern uint16_t url_http_proxy_port;

/** Text of the "User-Agent:" header; null, as at start, sends none. Not owned.
 *  url_http_open_with_offset() overwrites it. */
G_API extern const char* url_user_agent;

/** The HTTP module, which takes URLs that begin with exactly "http://". */
G_API extern URL_module URL_module_http;

/**
 * Requests a resource with HTTP/1.0 and opens its body as a stream.
 *
 * Redirections are not followed, chunks not decoded, and authentication is not answered: the body
 * comes byte for byte. "Content-Length:" becomes the read limit. When the connection breaks during
 * a read, the read returns the bytes before the break, even if there are none, and leaves the
 * reason in `errno`; the next read finds an end.
 *
 * The request goes to `url_http_proxy_host` if that is set, and names `url_user_agent` if that is
 * set.
 *
 * @param url  "http://host[:port][/path][?query]", NUL-terminated; the scheme may be missing. Not
 *             null, unchecked.
 * @return the stream at the first byte of its body, owned by the caller and released with
 *         url_close(); null on failure, with the reason in `url_errno`.
 *
 * @par Errors
 * `url_errno` is one of these, or the `errno` of a failed read among the headers:
 * - `URLERR_TOO_LONG`: the URL or the user agent does not fit into a line of 8192 bytes; `errno` is
 *   `ENOENT`.
 * - `ETIMEDOUT`: there is no connection, whatever the reason: the name is unknown, the server
 *   refuses, or 5 seconds have passed. Or the limit of url_http_set_timeout() has passed.
 * - `URLERR_CANT_OPEN`: the server closed the connection without a response; `errno` is `ENOENT`.
 * - `URLERR_HTTP_NOT_FOUND`: status 404; `errno` is `ENOENT`.
 * - `ENOENT`: any other status but 200 and 206.
 * - `ENOMEM`: memory is exhausted.
 * - ``Connect error : %s``: on standard error, with the system's text; the server refused.
 * - ``getsockopt failed : %s``: on standard error, with the system's text; the state of the
 *   connection cannot be read.
 *
 * Threads: any thread, one at a time: the settings and `url_errno` belong to the process.
 *
 * Standard: the request and status line of HTTP/1.0, RFC 1945.
 *
 * @par Notes
 * - Only connecting has a limit in time, 5 seconds. Name look-up, status, headers and body have
 *   none: a server that accepts and stays silent holds the thread forever. url_http_set_timeout()
 *   of <groundwork/safe.h> sets a limit for all but the name look-up.
 * - Line ends in the URL go into the request as they are and can add headers to it. Refuse control
 *   characters in a URL that comes from a user.
 * - "Content-Length:" is recognised only in this spelling. Without it the length is unknown, and
 *   reading goes to the end of the connection.
 * - Header lines are read 8191 bytes at a time. After one of exactly that length its line end is
 *   taken for the end of the headers, and the rest of a longer one for a line of its own.
 * - Redirections are not followed and chunked bodies not decoded: the body holds what the server
 *   sent.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_http_open("http://localhost:8080/notes.txt");
 * if (url == NULL) {
 *   fprintf(stderr, "%s\n", url_strerror(url_errno));
 *   return 1;
 * }
 * char line[256];
 * while (url_readline(url, line, sizeof line) > 0) puts(line);
 * // prints: one
 * // prints: two
 * url_close(url);
 * @endcode
 */
G_API URL url_http_open(const char* url);

/**
 * Requests a resource from a byte on, with HTTP/1.1, and opens its body as a stream.
 *
 * Redirections are not followed, chunks not decoded, and authentication is not answered: the body
 * comes byte for byte. The read limit is "Content-Length:" plus `offset`. When the connection
 * breaks during a read, the read returns the bytes before the break, even if there are none, and
 * leaves the reason in `errno`; the next read finds an end.
 *
 * The request goes to `url_http_proxy_host` if that is set. The sending side of the connection is
 * closed after it.
 *
 * @param url     "http://host[:port][/path][?query]", NUL-terminated; the scheme may be missing.
 *                Not null, unchecked.
 * @param offset  first byte of the resource that is wanted; 0 or less requests all of it.
 * @return the stream at the first byte that the server sent, owned by the caller and released with
 *         url_close(); null on failure, with the reason in `url_errno`. A server that ignores the
 *         range sends from byte 0.
 *
 * @par Errors
 * `url_errno` is one of these, or the `errno` of a failed read among the headers:
 * - `URLERR_TOO_LONG`: the URL or the user agent does not fit into a line of 8192 bytes; `errno` is
 *   `ENOENT`.
 * - `ETIMEDOUT`: there is no connection, whatever the reason: the name is unknown, the server
 *   refuses, or 5 seconds have passed. Or the limit of url_http_set_timeout() has passed.
 * - `URLERR_CANT_OPEN`: the server closed the connection without a response; `errno` is `ENOENT`.
 * - `URLERR_HTTP_NOT_FOUND`: status 404; `errno` is `ENOENT`.
 * - `ENOENT`: any other status but 200 and 206.
 * - `ENOMEM`: memory is exhausted.
 * - ``Connect error : %s``: on standard error, with the system's text; the server refused.
 * - ``getsockopt failed : %s``: on standard error, with the system's text; the state of the
 *   connection cannot be read.
 *
 * Threads: any thread, one at a time: the settings and `url_errno` belong to the process.
 *
 * Standard: the request and status line of HTTP/1.1, RFC 9112; the range, RFC 9110.
 *
 * @par Notes
 * - `url_user_agent` is set to "app", for good: later requests go out under that name.
 * - Some servers, nginx among them, take the closed sending side for a client that has left and
 *   break off a long body: compare the number of bytes with `readlimit`. url_http_open() does not
 *   close it.
 * - Only connecting has a limit in time, 5 seconds. Name look-up, status, headers and body have
 *   none: a server that accepts and stays silent holds the thread forever. url_http_set_timeout()
 *   of <groundwork/safe.h> sets a limit for all but the name look-up.
 * - Line ends in the URL go into the request as they are and can add headers to it. Refuse control
 *   characters in a URL that comes from a user.
 * - "Content-Length:" is recognised only in this spelling. Without it the length is unknown, and
 *   reading goes to the end of the connection.
 * - Header lines are read 8191 bytes at a time. After one of exactly that length its line end is
 *   taken for the end of the headers, and the rest of a longer one for a line of its own.
 * - Redirections are not followed and chunked bodies not decoded: the body holds what the server
 *   sent.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_http_open_with_offset("http://localhost:8080/notes.txt", 0);
 * if (url == NULL) {
 *   fprintf(stderr, "%s\n", url_strerror(url_errno));
 *   return 1;
 * }
 * char text[4] = "";
 * if (url_nread(url, text, 3) == 3) puts(text); // prints: one
 * url_close(url);
 * @endcode
 */
G_API URL url_http_open_with_offset(const char* url, int64_t offset);

/**
 * Returns the socket of an HTTP stream, and prints "g_url_http:361 socket=%d" and a newline to
 * standard output.
 *
 * @param url  an HTTP stream; not null, unchecked.
 * @return the descriptor of the socket under the stream; it stays the stream's.
 *
 * Threads: the thread that the stream belongs to.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_http_open("http://localhost:8080/notes.txt");
 * if (url == NULL) return 1;
 * int32_t fd = url_internal_sock(url);
 * if (fd == -1) puts("no socket");
 * url_close(url);
 * @endcode
 */
G_API int32_t url_internal_sock(URL url);

/** @} */

/**
 * @defgroup url_file Files and standard input
 *
 * The module for local files and "-", and its open function, which also works without registering
 * the module.
 *
 * Threads: a stream belongs to one thread at a time.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * char line[256];
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * if (url_gets(url, line, sizeof line) != NULL) fputs(line, stdout); // prints: one
 * url_close(url);
 * @endcode
 *
 * @{
 */

/** The file module. It takes texts that begin with '/' or, in any letter case, with "file:",
 *  and all others except those whose first ':' comes before any '/' and is followed by one:
 *  "c:x" is a file, "ftp://h" and "mailto:/x" are not. */
G_API extern URL_module URL_module_file;

/**
 * Opens a local file, or standard input, for reading.
 *
 * The size of the file at this moment becomes the read limit, modulo 2^32. If the size cannot be
 * found by seeking, as on a pipe, the position takes its place: 0xffffffff on a pipe, which is as
 * good as no limit, but 0 on most files under /proc, which read as empty until url_set_readlimit()
 * lifts that.
 *
 * The line reader of url_gets() ends lines at a carriage return as well as at a line feed.
 *
 * @param name  "-" for standard input; otherwise a path, with an optional "file:" in any letter
 *              case before it and "~" or "~user" for a home directory. Nothing is unescaped, and
 *              "file:///x" opens "///x". Not null, unchecked.
 * @return the stream, owned by the caller and released with url_close(). The stream of descriptor 0
 *         cannot be moved back and has no limit, and closing it rewinds the descriptor instead of
 *         closing it. Null on failure, with the reason in `url_errno` and `errno`. Descriptors are
 *         close-on-exec.
 *
 * @par Errors
 * - `ENOENT`: the name is empty, or there is no such file.
 * - `EACCES`: the file may not be read.
 * - `ENOMEM`: memory is exhausted.
 *
 * Threads: any thread, one at a time: `url_errno` and the buffer of the home directory belong to
 * the process.
 *
 * @par Notes
 * - The end of a file of 4 GiB or more is not read, without an error: the read limit is the size
 *   modulo 4 GiB.
 * - When the file ends inside a line, url_gets() puts the terminator one byte late: the byte before
 *   it is whatever the buffer held.
 * - In url_gets(), a failed read counts as the byte that the buffer held. A directory can be
 *   opened, and gives the buffer's old content. url_readline() has neither problem.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * URL url = url_file_open("notes.txt");
 * if (url == NULL) return 1;
 * char line[256];
 * while (url_readline(url, line, sizeof line) > 0) puts(line);
 * // prints: one
 * // prints: two
 * url_close(url);
 * @endcode
 */
G_API URL url_file_open(const char* name);

/** @} */

/**
 * @defgroup url_home Home directories
 *
 * "~" in paths, expanded and shortened.
 *
 * The texts that are returned are borrowed: they are in the argument or in a buffer that the next
 * call overwrites.
 *
 * Threads: the buffers belong to the whole process; callers take turns.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * // Where HOME is /home/ada:
 * puts(url_expand_home_dir("~/notes.txt"));           // prints: /home/ada/notes.txt
 * puts(url_unexpand_home_dir("/home/ada/notes.txt")); // prints: ~/notes.txt
 * @endcode
 *
 * @{
 */

/**
 * Expands a home directory at the start of a path: "~" (from the environment: HOME, else "home") or
 * "~user" (from the user database).
 *
 * @param path  any text, NUL-terminated; not null, unchecked.
 * @return `path` itself when it does not begin with "~" or the user is unknown ("~" alone is the
 *         user with an empty name); `path` + 1 for "~/..." when neither variable is set; otherwise
 *         a static buffer, valid until the next call, with at most 8191 characters, cut silently.
 *
 * Threads: one at a time: the buffer, and that of getpwnam(), belong to the process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * // Where HOME is /home/ada:
 * puts(url_expand_home_dir("~/notes.txt")); // prints: /home/ada/notes.txt
 * puts(url_expand_home_dir("/etc/hosts"));  // prints: /etc/hosts
 * @endcode
 */
G_API const char* url_expand_home_dir(const char* path);

/**
 * Shortens a path: replaces the home directory (from the environment: HOME, else "home") at its
 * start by "~".
 *
 * @param path  any text, NUL-terminated; not null, unchecked.
 * @return a static buffer of its own, valid until the next call, with "~/...". `path` itself when
 *         it is not inside the home directory (the directory itself without a "/" after it is not,
 *         either), when neither variable is set, when the directory is empty or has 8190 characters
 *         or more, or when 8189 or more would follow "~/".
 *
 * Threads: one at a time: the buffer belongs to the process.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/url.h>
 *
 * // Where HOME is /home/ada:
 * puts(url_unexpand_home_dir("/home/ada/notes.txt")); // prints: ~/notes.txt
 * puts(url_unexpand_home_dir("/home/ada"));           // prints: /home/ada
 * @endcode
 */
G_API const char* url_unexpand_home_dir(const char* path);

/** @} */

/** @} */

#ifdef __cplusplus
}
#endif

#endif
