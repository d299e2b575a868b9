/* SPDX-License-Identifier: MIT */
/**
 * @defgroup url Streams
 *
 * URL streams: local files, standard input and HTTP resources read through one handle.
 *
 * A program registers the modules that it wants, opens streams, reads and closes them.
 *
 * The generic functions work through the operation slots of the stream's record, which
 * its module fills in. They bound what is consumed by the stream's read limit and keep the
 * error of the last operation in `url_errno`: those that reach a module first set
 * `url_errno` to URLERR_NONE and `errno` to 0. Blocks are ordinary heap memory. Nothing is
 * logged; the few messages go to standard error as each function says.
 *
 * Unless it says otherwise a function checks no argument: a null stream, buffer or text
 * crashes. Counts and limits are added as unsigned 32-bit numbers.
 *
 * Threads: nothing is locked. `url_errno`, the module list, the settings and the buffers
 * of the home directory functions belong to the whole process, and a stream to one thread
 * at a time: callers take turns.
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
  URLERR_CANT_OPEN = 10003,       /**< the server closed without a word */
  URLERR_INVALID_FORM = 10004,    /**< invalid URL form */
  URLERR_TOO_LONG = 10005,        /**< URL too long */
  URLERR_NO_MAIL_ADDRESS = 10006, /**< no mail address */
  URLERR_HTTP_NOT_FOUND = 10008   /**< status 404; its text is "Internal error" */
};

/** No limit. */
enum {
  URL_NO_READLIMIT = 0x7fffffff /**< the read limit of a stream that has none */
};

struct URL_record;

/** A stream: a pointer to its record, of which every module's begins with the fields of
 *  URL_record. */
typedef struct URL_record* URL;

/** Reads bytes. @param url the stream. @param buf room for them. @param n how many at most.
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
/** Tells the position. @param url the stream. @return it, in bytes. */
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
 * url_file_open() leaves the view empty: the stream reads its descriptor, whose position
 * is always the stream's. A program that points `data` at bytes in memory, and sets
 * `size`, reads those instead; they stay its own. The module's records are longer than
 * this one: do not copy them.
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
 * Registers a module for streams, to be asked before all that are there.
 *
 * @param m  not owned; must live as long as the process. Registering a module twice makes
 *           the list a ring in which look-ups may never end.
 */
G_API void url_add_module(URL_module* m);

/**
 * Registers modules for streams in the order given, so that the last is asked first.
 *
 * @param first  the first, or null for none.
 * @param ...    further `URL_module *`, up to a null pointer (write `(URL_module *)NULL`
 *               where NULL may be an int).
 */
G_API void url_add_modules(URL_module* first, ...);

/**
 * Tells which module would open a URL. Leaves `url_errno` and `errno` alone.
 *
 * @param url  the text that the modules' name checks are given.
 * @return the module's type; -1 when none takes the URL.
 */
G_API int32_t url_check_type(const char* url);

/** @} */

/** @name Streams */
/** @{ */

/**
 * Opens a stream with the most recently registered module that takes the URL.
 *
 * @param url  for example "http://host/path", "file:/etc/hosts", "~/a.txt" or "-".
 * @return the stream, which the caller ends with url_close(). Null on failure: without a
 *         module for it `url_errno` is URLERR_UNKNOWN_URL and `errno` ENOENT; when the
 *         module's initialisation fails both are left alone, and the next url_open()
 *         tries it again; else both are as the module's open function set them.
 */
G_API URL url_open(const char* url);

/**
 * Reads bytes from a stream.
 *
 * @param url  a stream, or null.
 * @param buf  at least `n` bytes, or null.
 * @param n    how many at most; the read limit lowers it.
 * @return the number read. 0 at the end; at the read limit, which also sets `eof`; and for
 *         a null argument or an `n` below 1, which changes nothing, not even `url_errno`.
 *         -1 on error.
 */
G_API int32_t url_read(URL url, void* buf, int32_t n);

/** Reads bytes from a stream, as url_read(), repeated while a signal interrupts it (-1 with
 *  EINTR).
 *  @param url a stream, or null. @param buf at least `n` bytes, or null.
 *  @param n how many at most. @return as url_read(). */
G_API int32_t url_safe_read(URL url, void* buf, int32_t n);

/**
 * Reads exactly `n` bytes from a stream unless it ends or fails before.
 *
 * @param url  a stream, or null.
 * @param buf  at least `n` bytes, or null.
 * @param n    how many.
 * @return the number read, `n` when complete; 0 or -1 when the first read gave that.
 */
G_API int32_t url_nread(URL url, void* buf, int32_t n);

/**
 * Reads one line from a stream and keeps its end.
 *
 * The module's line reader is used if it has one; `nread` then grows by the length of the
 * text, so bytes after a NUL in the line are not counted. Else the line is read byte by
 * byte and ends with `url_newline_code`.
 *
 * @warning On a file stream a read that fails counts as a byte, the one that `buf` held. A
 * directory can be opened, and gives lines of the buffer's old content up to the read limit, with
 * EISDIR in `errno`.
 *
 * @param url  a stream.
 * @param buf  at least `n` bytes; takes the NUL-terminated text.
 * @param n    size of `buf`. 1 gives an empty text. Below 1 is a mistake that is not
 *             caught: a file stream still stores its NUL.
 * @return `buf`; null at the end, and at the read limit, where `url_errno` and `eof` stay
 *         as they are. (`eof` is set when the limit is met inside a line read byte by
 *         byte.)
 */
G_API char* url_gets(URL url, char* buf, int32_t n);

/**
 * Reads the next line of a stream that is not empty and strips its end: a carriage return or a
 * line feed whatever `url_newline_code` says.
 *
 * @param url  a stream; its `gets` slot is not used.
 * @param buf  at least `n` bytes; takes the NUL-terminated text. At the end of the stream
 *             it is not terminated.
 * @param n    size of `buf`. 1 gives an empty text; below 1 `buf` is left alone.
 * @return the length of the text; 0 at the end, and for an `n` below 2.
 */
G_API int32_t url_readline(URL url, char* buf, int32_t n);

/**
 * Reads one byte from a stream.
 *
 * On a stream whose module has no `fgetc` each byte counts twice in `nread`, and the last
 * one before the read limit is refused. Kept: both modules here have one.
 *
 * @param url  a stream.
 * @return 0 to 255; -1 at the end, on error, and at the read limit, where `url_errno` and
 *         `eof` stay as they are.
 */
G_API int32_t url_fgetc(URL url);

/**
 * Moves a stream to another position.
 *
 * A stream without a `seek` slot only goes forward, by reading, and not beyond its end;
 * its read limit is lifted meanwhile. Such a move returns the position from BEFORE it.
 *
 * @param url     a stream.
 * @param offset  bytes, relative to what `whence` says.
 * @param whence  SEEK_SET, SEEK_CUR or SEEK_END.
 * @return the new position as the module gives it, with `nread` restarted at 0; without a
 *         `seek` slot the former position. -1 on failure; a move that cannot be done by
 *         reading gives EPERM in `errno` and `url_errno`.
 */
G_API int64_t url_seek(URL url, int64_t offset, int32_t whence);

/** Tells the position of a stream. @param url a stream.
 *  @return it, in bytes; what its `tell` slot gives, else `nread`. */
G_API int64_t url_tell(URL url);

/**
 * Discards bytes of a stream, within the read limit: by moving the stream, or by reading where it
 * cannot be moved.
 *
 * @param url  a stream.
 * @param n    how many. A negative count moves a stream that has a `seek` slot back, and
 *             does nothing to another.
 */
G_API void url_skip(URL url, int64_t n);

/**
 * Moves a stream that has a `seek` slot to its start; `nread` stays, so the read limit
 * may already be used up. On another stream only `nread` returns to 0: reads continue
 * where the stream stands, with the limit renewed.
 *
 * @param url  a stream.
 */
G_API void url_rewind(URL url);

/**
 * Bounds what can still be read from a stream, and restarts `nread` at 0. `eof` stays.
 *
 * @param url    a stream.
 * @param limit  bytes from here on; negative for no limit.
 */
G_API void url_set_readlimit(URL url, int32_t limit);

/**
 * Allocates the record of a stream; for modules.
 *
 * @param size  bytes, the common part included; a smaller size is raised to that part's.
 * @return the record, zero-filled but for its read limit, URL_NO_READLIMIT; released with
 *         free() by the stream's `close`. Null when memory is exhausted, and for a negative
 *         size, which asks for more than there is: `url_errno` is then as `errno`, ENOMEM.
 */
G_API URL alloc_url(int32_t size);

/**
 * Ends a stream and releases its record. `errno` is preserved.
 *
 * @param url  a stream, invalid afterwards; null writes "URL stream structure is NULL?\n"
 *             to standard error. A record without a `close` slot is left alone, with
 *             "URL Error: Already URL is closed (type=%d)\n" on standard error.
 */
G_API void url_close(URL url);

/** Describes an error of streams. @param code a value of `url_errno`.
 *  @return its text, not owned by the caller; the system's below 10001 (valid until the
 *  thread's next strerror()), "Internal error" from 10007 on. */
G_API const char* url_strerror(int32_t code);

/**
 * Reads a stream into memory.
 *
 * @param url      a stream.
 * @param size     how many bytes at most; also the size of the buffer. A negative size
 *                 gives null: despite its looks it does not mean "to the end".
 * @param len_out  takes the number of bytes read, or is null.
 * @return the buffer, which the caller releases with free(). Null for a size of 0 or less,
 *         at the end of the stream, and when memory is exhausted, with 0 in `*len_out`.
 *         When the first read fails the buffer is returned, with undefined content and -1
 *         in `*len_out`.
 */
G_API void* url_dump(URL url, int32_t size, int32_t* len_out);

/** @} */

/**
 * @defgroup url_socket Sockets
 *
 * A bounded connect, and the system's calls under names of their own: what a module for
 * another scheme needs.
 *
 * Descriptors and streams are the caller's. Nothing is checked and nothing is logged.
 *
 * Threads: as the system's calls, but for open_socket().
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
 * Connects to a TCP server, IPv4 first and else IPv6, within 5 seconds of having its
 * address.
 *
 * Threads: not reentrant, since it uses the system's gethostbyname2().
 *
 * @param host      host name or numeric address.
 * @param port      port; its low 16 bits count.
 * @param addr_out  takes the server's IPv4 address in network byte order, 0 for IPv6; may
 *                  be null.
 * @return the descriptor, blocking and close-on-exec, owned by the caller; -1 on failure.
 *         `url_errno` is left alone. A refusal that shows after the wait is told on
 *         standard error, "Connect error : %s\n", as is a failed look for it, "getsockopt
 *         failed : %s\n".
 */
G_API int32_t open_socket(const char* host, int32_t port, uint32_t* addr_out);

/** Writes to a socket, as write(2).
 *  @param fd a socket. @param buf at least `len` bytes. @param len bytes to write.
 *  @return bytes written, or -1 with `errno` set. A peer that is gone raises no SIGPIPE. */
G_API int64_t socket_write(int fd, const void* buf, int64_t len);

/** Ends one or both directions, as shutdown(2).
 *  @param fd a socket. @param how SHUT_RD, SHUT_WR or SHUT_RDWR.
 *  @return 0, or -1 with `errno` set. */
G_API int socket_shutdown(int fd, int how);

/** Puts a buffered stream over a socket, as fdopen(3).
 *  @param fd a socket, owned by the stream on success. @param mode as "rb".
 *  @return the stream, or null with `errno` set. */
G_API FILE* socket_fdopen(int fd, const char* mode);

/** Reads a line, as fgets(3).
 *  @param buf at least `n` bytes. @param n size of `buf`. @param stream not null.
 *  @return `buf`, or null. */
G_API char* socket_fgets(char* buf, int n, FILE* stream);

/** Reads a byte, as getc(3).
 *  @param stream not null. @return 0 to 255, or EOF. */
G_API int socket_fgetc(FILE* stream);

/** Reads bytes, as fread(3).
 *  @param buf at least `n` bytes. @param n how many at most.
 *  @param stream not null. @return the number of bytes read. */
G_API int64_t socket_fread(void* buf, int64_t n, FILE* stream);

/** Writes bytes, as fwrite(3).
 *  @param buf at least `n` bytes. @param n how many.
 *  @param stream not null. @return the number of bytes written. */
G_API int64_t socket_fwrite(const void* buf, int64_t n, FILE* stream);

/** Closes a stream and its descriptor, as fclose(3).
 *  @param stream not null; invalid afterwards. @return 0, or EOF. */
G_API int socket_fclose(FILE* stream);

/** Writes out what is buffered, as fflush(3).
 *  @param stream not null. @return 0, or EOF. */
G_API int socket_fflush(FILE* stream);

/** @} */

/**
 * @defgroup url_http HTTP
 *
 * The module for "http://", its settings, and its open functions, which work without
 * registration too.
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
 * Requests a resource with HTTP/1.0 and opens its body as a stream. Redirects, chunks and
 * authentication are not followed, undone or answered: the body comes byte for byte.
 * "Content-Length:" becomes the read limit. A read that meets a broken connection answers
 * with the bytes before it, if only 0, and leaves the reason in `errno`; the next finds an
 * end.
 *
 * @warning Only connecting has a limit in time, 5 seconds. Looking up the name, the status, the
 * headers and the body have none unless url_http_set_timeout() of <groundwork/safe.h> sets one: a
 * server that stays silent holds the thread. Line ends in the URL go into the request and can
 * write headers.
 * "Content-Length:" is seen in this spelling alone, and after a header line of exactly 8191 bytes
 * its line end is taken for the end of the headers.
 *
 * @param url  "http://host[:port][/path][?query]"; the scheme may be missing.
 * @return the stream at its first body byte. Null on failure, with `url_errno`:
 *         URLERR_TOO_LONG (`errno` ENOENT) for a URL that does not fit 8192 bytes, or
 *         what else cannot be sent whole; ETIMEDOUT without a connection, whatever the
 *         reason; URLERR_CANT_OPEN (`errno` ENOENT) when the server closes without a word;
 *         URLERR_HTTP_NOT_FOUND (`errno` ENOENT) for status 404; ENOENT for every other
 *         status but 200 and 206; else as `errno`, also where reading the headers fails.
 *
 * Standard: the request and status line of RFC 1945.
 */
G_API URL url_http_open(const char* url);

/**
 * Requests a resource from a byte on: as url_http_open(), with HTTP/1.1.
 *
 * Sets `url_user_agent` to "app", for good, and closes the sending side after the request.
 * The read limit is "Content-Length:" plus `offset`. Some servers, nginx among them, take
 * the closed side for a client that has gone and break off a long body: compare what came
 * with `readlimit`.
 *
 * @param url     as for url_http_open().
 * @param offset  first byte wanted; 0 or less asks for all.
 * @return as url_http_open(). A server that ignores the range answers from byte 0.
 *
 * Standard: the request and status line of RFC 9112, the range of RFC 9110.
 */
G_API URL url_http_open_with_offset(const char* url, int64_t offset);

/** Tells the socket of an HTTP stream; prints "g_url_http:361 socket=%d\n" to standard output.
 *  @param url an HTTP stream.
 *  @return the socket under the stream, which stays the stream's. */
G_API int32_t url_internal_sock(URL url);

/** @} */

/**
 * @defgroup url_file Files and standard input
 *
 * The module for local files and "-", and its open function, which works without
 * registration too.
 *
 * Threads: as all streams.
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

/** The file module. It takes texts that begin with '/', that begin with "file:" in any
 *  letter case, and all others but those whose first ':' comes before any '/' and is
 *  followed by one: "c:x" is a file, "ftp://h" and "mailto:/x" are not. */
G_API extern URL_module URL_module_file;

/**
 * Opens a local file, or standard input, for reading.
 *
 * The size of the file at this moment becomes the read limit, modulo 2^32. Where the size
 * cannot be had by seeking, as on a pipe, the position takes its place: 0xffffffff on a
 * pipe, which is as good as no limit, but 0 on most files under /proc, which read as empty
 * until url_set_readlimit() lifts that.
 *
 * The line reader behind url_gets() ends lines at a carriage return as well as at a line
 * feed. When the file ends inside a line before the buffer or the read limit does, the
 * terminator comes one byte late: the byte before it is whatever the buffer held. A failed
 * read counts as a byte, too. Both are kept as programs know them.
 *
 * @param name  "-" for standard input; else a path, with an optional "file:" in any
 *              letter case before it and "~" or "~user" for a home directory. Nothing is
 *              unescaped, and "file:///x" opens "///x".
 * @return the stream; that of descriptor 0 cannot be moved back and has no limit, and
 *         closing it rewinds the descriptor instead of closing it. Null on failure with
 *         `url_errno` as `errno`: ENOENT for an empty name, else that of open() or of
 *         the allocation. Descriptors are close-on-exec.
 */
G_API URL url_file_open(const char* name);

/** @} */

/**
 * @defgroup url_home Home directories
 *
 * "~" in paths, from and to.
 *
 * The texts that are returned are borrowed: they lie in the argument or in a buffer that the
 * next call overwrites.
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
 * Expands a home directory: a leading "~" (from the environment: HOME, else "home") or "~user"
 * (from the user database).
 *
 * @param path  any text.
 * @return `path` itself when it does not begin with '~' or the user is unknown ("~" alone
 *         is the user with an empty name); `path` + 1 for "~/..." when neither variable is
 *         set; else a static buffer, valid until the next call, with at most 8191
 *         characters, cut silently.
 */
G_API const char* url_expand_home_dir(const char* path);

/**
 * Shortens a path: replaces the home directory (from the environment: HOME, else "home") at its
 * start by "~".
 *
 * @param path  any text.
 * @return a static buffer of its own, valid until the next call, with "~/...". `path`
 *         itself when it is not below the home directory (the directory itself without a
 *         '/' behind it is not, either), when neither variable is set, when the directory
 *         is empty or has 8190 characters or more, or when 8189 or more would follow "~/".
 */
G_API const char* url_unexpand_home_dir(const char* path);

/** @} */

/** @} */

#ifdef __cplusplus
}
#endif

#endif
