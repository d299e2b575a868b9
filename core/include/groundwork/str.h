/* SPDX-License-Identifier: MIT */
/**
 * @defgroup str Strings
 *
 * Strings: copying, trimming, splitting, comparing, formatted allocation.
 *
 * Strings are NUL-terminated bytes. Nothing here depends on the locale, except what the system's
 * formatter does for g_strdup_printf(). Every string returned is a heap string of its own, which
 * the caller releases with free(); a vector of strings is released with g_strfreev().
 *
 * Whitespace is blank, tab, newline, vertical tab, form feed and carriage return.
 *
 * Failed argument checks are logged as critical under the name "g_str".
 *
 * Threads: no state; callers that share a string lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char **parts = g_strsplit("10.0.0.1, 10.0.0.2", ",", 0);
 * if (parts == NULL) return 1;
 * for (int i = 0; parts[i] != NULL; ++i) {
 *   char *line = g_strdup_printf("%d: %s", i, g_strchug(parts[i]));
 *   if (line != NULL) puts(line);
 *   // prints: 0: 10.0.0.1
 *   // prints: 1: 10.0.0.2
 *   free(line);
 * }
 * g_strfreev(parts);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_STR_H
#define GROUNDWORK_STR_H

#include <stdarg.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Copies a string.
 *
 * @param str  NUL-terminated; not null.
 * @return the copy, a heap string that the caller releases with free(); null when `str` is null,
 *         or, with nothing logged, when memory is exhausted.
 *
 * @par Errors
 * - ``'str != NULL' FAILED.``: critical; `str` is null.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *name = g_strdup("pump");
 * if (name == NULL) return 1;
 * puts(name); // prints: pump
 * free(name);
 * @endcode
 */
G_API char* g_strdup(const char* str);

/**
 * Removes leading whitespace from a string in place; the rest moves to the front. Whitespace is
 * blank, tab, newline, vertical tab, form feed and carriage return.
 *
 * @param str  NUL-terminated and writable; not null.
 * @return `str`; null when `str` is null.
 *
 * @par Errors
 * - ``'str != NULL' FAILED.``: critical; `str` is null.
 *
 * Threads: any thread; callers that share a string lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char text[] = "  pump ";
 * printf("'%s'\n", g_strchug(text)); // prints: 'pump '
 * @endcode
 */
G_API char* g_strchug(char* str);

/**
 * Removes trailing whitespace from a string in place: every byte of it is overwritten with NUL.
 * Whitespace is blank, tab, newline, vertical tab, form feed and carriage return.
 *
 * @param str  NUL-terminated and writable; not null.
 * @return `str`; null when `str` is null.
 *
 * @par Errors
 * - ``'str != NULL' FAILED.``: critical; `str` is null.
 *
 * Threads: any thread; callers that share a string lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char text[] = "  pump \n";
 * printf("'%s'\n", g_strchomp(text)); // prints: '  pump'
 * @endcode
 */
G_API char* g_strchomp(char* str);

/**
 * Splits a string at each occurrence of a delimiter, from the left. Pieces may be empty: "a,,b"
 * gives "a", "", "b"; "a," gives "a", "". The empty string gives no piece at all.
 *
 * @param str         NUL-terminated; not null.
 * @param delim       the delimiter, matched as one whole string; neither null nor empty.
 * @param max_tokens  maximum number of pieces, the last one of which holds the unsplit rest; below
 *                    1 there is no limit.
 * @return the pieces, a heap array of heap strings that ends with a null pointer, owned by the
 *         caller and released with g_strfreev(). Null on a failed check, or, with nothing logged,
 *         when memory is exhausted.
 *
 * @par Errors
 * - ``'str != NULL' FAILED.``: critical; `str` is null.
 * - ``'delim != NULL' FAILED.``: critical; `delim` is null.
 * - ``'delim[0] != '\0'' FAILED.``: critical; `delim` is empty.
 *
 * Threads: any thread; callers that share a string lock around it.
 *
 * @par Notes
 * The delimiter is not a set of characters: ", " does not split at ",". Split again, or trim the
 * pieces.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char **parts = g_strsplit("net.ip.address", ".", 2);
 * if (parts == NULL) return 1;
 * for (char **part = parts; *part != NULL; ++part) puts(*part);
 * // prints: net
 * // prints: ip.address
 * g_strfreev(parts);
 * @endcode
 */
G_API char** g_strsplit(const char* str, const char* delim, int max_tokens);

/**
 * Frees a vector of strings, and the strings.
 *
 * @param str_array  a heap array of heap strings that ends with a null pointer, as from
 *                   g_strsplit(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'str_array != NULL' FAILED.``: critical; `str_array` is null.
 *
 * Threads: any thread; no other thread may use the vector.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char **parts = g_strsplit("a,b", ",", 0);
 * if (parts == NULL) return 1;
 * g_strfreev(parts);
 * @endcode
 */
G_API void g_strfreev(char** str_array);

/**
 * Returns whether a string ends with another.
 *
 * @param str     NUL-terminated; not null.
 * @param suffix  NUL-terminated; not null. The empty string always matches.
 * @return 1 when `str` ends with exactly `suffix`, else 0; 0 when an argument is null.
 *
 * @par Errors
 * - ``'str != NULL' FAILED.``: critical; `str` is null.
 * - ``'suffix != NULL' FAILED.``: critical; `suffix` is null.
 *
 * Threads: any thread; callers that share a string lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * printf("%d\n", g_str_has_suffix("pump.conf", ".conf")); // prints: 1
 * printf("%d\n", g_str_has_suffix("pump.conf", ".CONF")); // prints: 0
 * @endcode
 */
G_API int g_str_has_suffix(const char* str, const char* suffix);

/**
 * Returns whether a string begins with another.
 *
 * @param str     NUL-terminated; not null.
 * @param prefix  NUL-terminated; not null. The empty string always matches.
 * @return 1 when `str` begins with exactly `prefix`, else 0; 0 when an argument is null.
 *
 * @par Errors
 * - ``'str != NULL' FAILED.``: critical; `str` is null.
 * - ``'prefix != NULL' FAILED.``: critical; `prefix` is null.
 *
 * Threads: any thread; callers that share a string lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * printf("%d\n", g_str_has_prefix("http://host/", "http://")); // prints: 1
 * @endcode
 */
G_API int g_str_has_prefix(const char* str, const char* prefix);

/**
 * Removes every space character from a string in place. Other whitespace stays.
 *
 * @param str  NUL-terminated and writable; not null, unchecked.
 * @return the number of spaces removed.
 *
 * Threads: any thread; callers that share a string lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char number[] = "1 000 000";
 * printf("%d\n", g_strpack(number)); // prints: 2
 * puts(number);                      // prints: 1000000
 * @endcode
 */
G_API int g_strpack(char* str);

/**
 * Copies at most `len` bytes of a string and always terminates the copy: like strncpy(), which
 * fills up with NULs when `src` is shorter, and then stores a NUL at `dst[len]`.
 *
 * @param dst  room for `len` + 1 bytes; not null, unchecked.
 * @param src  read up to its NUL or `len` bytes; not null, unchecked. May overlap `dst`.
 * @param len  number of bytes to copy or fill, not counting the final NUL.
 * @return `dst`.
 *
 * Threads: any thread; callers that share a string lock around it.
 *
 * @par Notes
 * It writes `len` + 1 bytes. With `len` = the size of the buffer it writes past the end; pass the
 * size minus one.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char name[5];
 * g_strncpy(name, "waterworks", sizeof name - 1);
 * puts(name); // prints: wate
 * @endcode
 */
G_API char* g_strncpy(char* dst, const char* src, unsigned len);

/**
 * Formats into a new string.
 *
 * The size of the block is estimated from the format and its arguments before the text is made,
 * usually a little high, so that one allocation is enough. If the block turns out too small, it
 * grows.
 *
 * For some conversions the estimate does not know the argument. They are logged, and the text is
 * made by the system's formatter all the same. After a conversion for which estimate and formatter
 * take different arguments, strings are not measured, and the block grows to hold them.
 *
 * @param fmt  format of printf() in the C library. Null gives the empty string.
 * @param ...  the arguments of the conversions, as for printf(); they stay the caller's.
 * @return the text, a heap string that the caller releases with free(); null, with nothing logged,
 *         when memory is exhausted. When the system's formatter fails, the text that it made before
 *         the failure.
 *
 * @par Errors
 * Warnings about conversions; the text is not affected:
 * - ``unable to handle positional parameters(%n$)``: a conversion names its argument by position.
 * - ``(): unable to handle long double, collecting double only``: a long double.
 * - ``(): unable to handle wide char strings``: a wide string.
 * - ``(): unable to handle `%c' while parsing format``: with the character; an unknown conversion.
 *
 * Threads: any thread. The result depends on the locale where the formatter's does, so setlocale()
 * must not be called at the same time.
 *
 * Standard: the format of printf(), ISO C.
 *
 * @par Notes
 * - Each "%m" leaks 17 bytes. Pass strerror(errno) for "%s" instead.
 * - For "%.*s" the block is as large as the precision, however short the text: a precision near
 *   2^31 asks for 2 GiB, and the result is null.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *line = g_strdup_printf("%s: %d rpm", "pump", 40);
 * if (line == NULL) return 1;
 * puts(line); // prints: pump: 40 rpm
 * free(line);
 * @endcode
 */
G_API char* g_strdup_printf(const char* fmt, ...) G_PRINTF(1, 2);

/**
 * Formats into a new string, with a list of arguments.
 *
 * The size of the block is estimated from the format and its arguments before the text is made,
 * usually a little high, so that one allocation is enough. If the block turns out too small, it
 * grows.
 *
 * For some conversions the estimate does not know the argument. They are logged, and the text is
 * made by the system's formatter all the same. After a conversion for which estimate and formatter
 * take different arguments, strings are not measured, and the block grows to hold them.
 *
 * @param fmt   format of printf() in the C library. Null gives the empty string.
 * @param args  the arguments of the conversions, from va_start(); undefined afterwards. The caller
 *              calls va_end().
 * @return the text, a heap string that the caller releases with free(); null, with nothing logged,
 *         when memory is exhausted. When the system's formatter fails, the text that it made before
 *         the failure.
 *
 * @par Errors
 * Warnings about conversions; the text is not affected:
 * - ``unable to handle positional parameters(%n$)``: a conversion names its argument by position.
 * - ``(): unable to handle long double, collecting double only``: a long double.
 * - ``(): unable to handle wide char strings``: a wide string.
 * - ``(): unable to handle `%c' while parsing format``: with the character; an unknown conversion.
 *
 * Threads: any thread. The result depends on the locale where the formatter's does, so setlocale()
 * must not be called at the same time.
 *
 * Standard: the format of printf(), ISO C.
 *
 * @par Notes
 * - Each "%m" leaks 17 bytes. Pass strerror(errno) for "%s" instead.
 * - For "%.*s" the block is as large as the precision, however short the text: a precision near
 *   2^31 asks for 2 GiB, and the result is null.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * #include <stdarg.h>
 *
 * static void show(const char *fmt, ...) {
 *   va_list args;
 *   va_start(args, fmt);
 *   char *text = g_strdup_vprintf(fmt, args);
 *   va_end(args);
 *   if (text != NULL) puts(text);
 *   free(text);
 * }
 *
 * show("%s: %d rpm", "pump", 40); // prints: pump: 40 rpm
 * @endcode
 */
G_API char* g_strdup_vprintf(const char* fmt, va_list args) G_PRINTF(1, 0);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
