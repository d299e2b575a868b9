/* SPDX-License-Identifier: MIT */
/**
 * @defgroup str Strings
 *
 * Strings: copying, trimming, splitting, comparing, formatted allocation.
 *
 * Strings are NUL-terminated bytes; nothing here depends on the locale, except what the
 * system formatter does for g_strdup_printf(). Every string returned is a heap string of its
 * own, released by the caller with free(); a vector of strings is released with
 * g_strfreev().
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
 * @param str  null fails the check "str != NULL".
 * @return a new string; null on the failed check, or, unreported, when memory is exhausted.
 */
G_API char* g_strdup(const char* str);

/**
 * Removes leading whitespace in place; the rest moves to the front.
 *
 * @param str  null fails the check "str != NULL".
 * @return `str`; null on the failed check.
 */
G_API char* g_strchug(char* str);

/**
 * Removes trailing whitespace in place: every byte of it is overwritten with NUL.
 *
 * @param str  null fails the check "str != NULL".
 * @return `str`; null on the failed check.
 */
G_API char* g_strchomp(char* str);

/**
 * Splits a string at each occurrence of a delimiter, from the left. Pieces may be empty:
 * "a,,b" gives "a", "", "b"; "a," gives "a", "". The empty string gives no piece at all.
 *
 * @param str         null fails the check "str != NULL".
 * @param delim       matched as a whole, not as a set of characters. Null fails the check
 *                    "delim != NULL", the empty string "delim[0] != '\0'".
 * @param max_tokens  at most this many pieces, the last one holding the unsplit rest; below
 *                    1 there is no limit.
 * @return a new vector, ended by a null pointer, for g_strfreev(). Null on a failed check,
 *         or, unreported, when memory is exhausted.
 */
G_API char** g_strsplit(const char* str, const char* delim, int max_tokens);

/**
 * Frees a vector and all its strings.
 *
 * @param str_array  heap array of heap strings, ended by a null pointer; null fails the
 *                   check "str_array != NULL".
 */
G_API void g_strfreev(char** str_array);

/**
 * Tells whether a string ends with another.
 *
 * @param str     null fails the check "str != NULL".
 * @param suffix  null fails the check "suffix != NULL"; the empty string always matches.
 * @return 1 when `str` ends with `suffix`, exactly; else 0, also on a failed check.
 */
G_API int g_str_has_suffix(const char* str, const char* suffix);

/**
 * Tells whether a string begins with another.
 *
 * @param str     null fails the check "str != NULL".
 * @param prefix  null fails the check "prefix != NULL"; the empty string always matches.
 * @return 1 when `str` begins with `prefix`, exactly; else 0, also on a failed check.
 */
G_API int g_str_has_prefix(const char* str, const char* prefix);

/**
 * Removes every space character in place. Other whitespace stays.
 *
 * @param str  not null; unchecked.
 * @return how many spaces were removed.
 */
G_API int g_strpack(char* str);

/**
 * Copies at most `len` bytes as strncpy() does, filling up with NULs when `src` is shorter,
 * and then always stores a NUL at `dst[len]`.
 *
 * @warning `dst` must have room for `len` + 1 bytes.
 *
 * @param dst  not null; unchecked. Room for `len` + 1 bytes.
 * @param src  not null; unchecked. Read up to its NUL or `len` bytes; may overlap `dst`.
 * @param len  bytes to copy or fill, not counting the final NUL.
 * @return `dst`.
 */
G_API char* g_strncpy(char* dst, const char* src, unsigned len);

/**
 * Formats into a new string.
 *
 * The block's size is estimated from the format and its arguments before the text is made:
 * usually more than the text needs, so that one allocation does. A block that turns out too
 * small for what the system formatter makes of the format grows.
 *
 * Warnings about conversions that the estimate does not cover (positional parameters, wide
 * strings, long doubles, unknown characters) are logged under the name "g_str"; the text is
 * the system formatter's all the same. Behind a conversion for which estimate and formatter
 * take different arguments, strings are not measured, and the block grows by them. Each "%m"
 * leaks a block of 17 bytes.
 *
 * @warning For "%.*s" the block is as large as the precision, however short the text: a precision
 * near 2^31 asks for 2 GiB, and the result is null.
 *
 * @param fmt  printf format of the C library. Null, which other formatters crash on, gives
 *             the empty string.
 * @return a new string; null, unreported, when memory is exhausted. When the system
 *         formatter fails, the text that it made before it failed.
 */
G_API char* g_strdup_printf(const char* fmt, ...) G_PRINTF(1, 2);

/** Formats into a new string, as g_strdup_printf(), with an argument list.
 *  @param fmt as there. @param args consumed; undefined afterwards. @return as there. */
G_API char* g_strdup_vprintf(const char* fmt, va_list args) G_PRINTF(1, 0);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
