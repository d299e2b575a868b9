/* SPDX-License-Identifier: MIT */
/**
 * @defgroup log Logging
 * @ingroup core
 *
 * Levelled diagnostics.
 *
 * A message is printed when its level is at least the process-wide threshold, which is 3 (warnings
 * and errors) until g_debug_init() or g_debug_set_level2() changes it. A line reads
 * "[<package>: ][<file>:<line>: ][<tag>]<message>".
 *
 * Threads: any thread may log at any time. Each line is emitted by one call, so lines do not mix.
 * Set threshold, handler and package name at start-up.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * // Gets each line instead of standard error.
 * static int to_console(const char *text, void *arg) {
 *   (void)arg;
 *   return printf("%s\n", text);
 * }
 *
 * g_package_set_name("waterworks");
 * g_debug_set_level2(G_LOG_MESSAGE);
 * g_debug_set_handler(to_console, NULL);
 * g_log(G_LOG_DEBUG, "pump", __LINE__, "below the threshold");
 * g_log(G_LOG_MESSAGE, "pump", __LINE__, "pumped %d litres", 40);
 * // prints: waterworks: pumped 40 litres
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_LOG_H
#define GROUNDWORK_LOG_H

#include <stdarg.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Severity levels. Any other int is a valid level too: it is filtered by the same
 *  comparison and printed with neither file and line nor tag. */
enum {
  G_LOG_DEBUG = 0,       /**< reports and traces; file and line shown */
  G_LOG_MESSAGE = 1,     /**< notices; no file and line */
  G_LOG_INFORMATION = 2, /**< for applications; file and line shown */
  G_LOG_WARNING = 3,     /**< system failures; file and line, "[WARNING] " */
  G_LOG_ERROR = 4,       /**< failed argument checks; file and line, "[CRITICAL] " */
  G_LOG_SILENT = 99      /**< as a threshold: nothing the library emits reaches it */
};

/**
 * Receives each finished line instead of standard error.
 *
 * @param text  NUL-terminated; a log line comes without a trailing newline, the text of g_print()
 *              exactly as formatted. Valid during the call only.
 * @param arg   as given to g_debug_set_handler().
 * @return becomes the result of g_log() and g_logv().
 */
typedef int (*GLogHandler)(const char* text, void* arg);

/**
 * Chooses the threshold of the log by marker files: the first of "/tmp/vk_debug" (0),
 * "/tmp/vk_message" (1), "/tmp/vk_information" (2), "/tmp/vk_warning" (3) and "/tmp/vk_error" (4)
 * that exists as a regular file; 99, silence, when none does. Then the choice is printed as
 * g_print() prints, whatever the threshold: "[g_debug_init]: USING DEBUGLEVEL : 99".
 *
 * It may be called again at any time to follow markers that were created or removed.
 *
 * Threads: any thread at any time.
 *
 * @par Notes
 * Without a marker file the library is silent, warnings and errors included: failures in the field
 * leave no trace. Create a marker, or do not call this function; the threshold is then 3.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_package_set_name("waterworks");
 * g_debug_init();                             // "touch /tmp/vk_debug" shows everything
 * if (g_debug_get_level() == G_LOG_SILENT) { // no marker
 *   g_debug_set_level2(G_LOG_WARNING);
 * }
 * @endcode
 */
G_API void g_debug_init(void);

/**
 * Sets the threshold of the log.
 *
 * @param level  the lowest level that is printed: 0 to 4, 99 for silence, or any other value;
 *               unchecked.
 *
 * Threads: any thread at any time; other threads see it with their next line.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_debug_set_level2(G_LOG_ERROR);
 * printf("%d\n", g_debug_get_level()); // prints: 4
 * @endcode
 */
G_API void g_debug_set_level2(int level);

/**
 * Does nothing and leaves the threshold of the log unchanged.
 *
 * @param level  ignored.
 *
 * Threads: any thread at any time.
 *
 * @par Notes
 * The level has no effect; g_debug_set_level2() sets the threshold. The function is kept because
 * programs call it and rely on its having no effect.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_debug_set_level(G_LOG_DEBUG);
 * printf("%d\n", g_debug_get_level()); // prints: 3
 * @endcode
 */
G_API void g_debug_set_level(int level);

/**
 * Returns the threshold of the log.
 *
 * @return the lowest level that is printed; 3 at start.
 *
 * Threads: any thread at any time.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * if (g_debug_get_level() > G_LOG_DEBUG) puts("no traces"); // prints: no traces
 * @endcode
 */
G_API int g_debug_get_level(void);

/**
 * Redirects all output of g_log(), g_logv() and g_print() to a function.
 *
 * @param handler  called with each finished text; null sends output to standard error again.
 * @param arg      passed to `handler`; stays the caller's; may be null.
 *
 * Threads: set it at start-up. The handler and its argument are two values: another thread that
 * logs during the call may use the new value of one with the old value of the other. The handler
 * runs on the thread that logs, on several at the same time.
 *
 * @par Notes
 * A handler that logs, directly or by a call that fails, is called for its own line, without limit,
 * until the stack overflows. Write with write() or fprintf() inside it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int to_console(const char *text, void *arg) {
 *   return printf("%s%s\n", (const char *)arg, text);
 * }
 *
 * g_debug_set_handler(to_console, "log: ");
 * g_log(5, "pump", __LINE__, "stopped"); // prints: log: stopped
 * @endcode
 */
G_API void g_debug_set_handler(GLogHandler handler, void* arg);

/**
 * Logs one line. Nothing is allocated. Below the threshold the call costs one comparison and
 * formats nothing.
 *
 * The line reads "[<package>: ][<file>:<line>: ][<tag>]<message>" and goes to standard error with a
 * newline, or to the handler of g_debug_set_handler() without one.
 *
 * | level | name | file and line | tag |
 * |---|---|---|---|
 * | 0 | G_LOG_DEBUG | shown | |
 * | 1 | G_LOG_MESSAGE | | |
 * | 2 | G_LOG_INFORMATION | shown | |
 * | 3 | G_LOG_WARNING | shown | "[WARNING] " |
 * | 4 | G_LOG_ERROR | shown | "[CRITICAL] " |
 *
 * @param level  0 to 4; any other value is allowed and shows neither file and line nor a tag.
 * @param file   name of the source, NUL-terminated; shown for levels 0, 2, 3 and 4.
 * @param line   line in the source; shown with `file`.
 * @param fmt    format of printf(); not null.
 * @param ...    the arguments of the conversions, as for printf(); they stay the caller's.
 * @return 1 when the level is below the threshold; else what the handler returned, or what fputs()
 *         returned for standard error.
 *
 * Threads: any thread at any time. A line is emitted by one call.
 *
 * @par Notes
 * The message is cut at 1591 bytes, and so is the whole line, its newline included: a long line
 * loses its end, and the next line is appended to it. Log in parts.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_log(G_LOG_WARNING, "pump", __LINE__, "%d rpm is too fast", 400);
 * // on standard error: pump:12: [WARNING] 400 rpm is too fast
 * @endcode
 */
G_API int g_log(int level, const char* file, int line, const char* fmt, ...) G_PRINTF(4, 5);

/**
 * Logs one line, with a list of arguments. Nothing is allocated. Below the threshold the call costs
 * one comparison and formats nothing.
 *
 * The line reads "[<package>: ][<file>:<line>: ][<tag>]<message>" and goes to standard error with a
 * newline, or to the handler of g_debug_set_handler() without one.
 *
 * @param level  0 to 4; any other value is allowed and shows neither file and line nor a tag. The
 *               tag is "[WARNING] " for 3 and "[CRITICAL] " for 4.
 * @param file   name of the source, NUL-terminated; shown for levels 0, 2, 3 and 4.
 * @param line   line in the source; shown with `file`.
 * @param fmt    format of printf(); not null.
 * @param ap     the arguments of the conversions, from va_start(); undefined afterwards. The caller
 *               calls va_end().
 * @return 1 when the level is below the threshold; else what the handler returned, or what fputs()
 *         returned for standard error.
 *
 * Threads: any thread at any time. A line is emitted by one call.
 *
 * @par Notes
 * The message is cut at 1591 bytes, and so is the whole line, its newline included: a long line
 * loses its end, and the next line is appended to it. Log in parts.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * #include <stdarg.h>
 *
 * static void warn(int line, const char *fmt, ...) {
 *   va_list ap;
 *   va_start(ap, fmt);
 *   g_logv(G_LOG_WARNING, "pump", line, fmt, ap);
 *   va_end(ap);
 * }
 *
 * warn(__LINE__, "%d rpm is too fast", 400);
 * @endcode
 */
G_API int g_logv(int level, const char* file, int line, const char* fmt, va_list ap)
    G_PRINTF(4, 0);

/**
 * Prints formatted text to standard error, or to the handler of g_debug_set_handler(), as it is: no
 * threshold, prefix, tag or newline.
 *
 * @param fmt  format of printf(); not null.
 * @param ...  the arguments of the conversions, as for printf(); they stay the caller's.
 *
 * Threads: any thread at any time. The text is emitted by one call.
 *
 * @par Notes
 * At most 1019 bytes are printed; the rest is lost.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_print("waterworks %s\n", "1.0"); // to standard error
 * @endcode
 */
G_API void g_print(const char* fmt, ...) G_PRINTF(1, 2);

/**
 * Does nothing; kept because programs may link to it.
 *
 * Threads: any thread at any time.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * test_out(); // nothing happens
 * @endcode
 */
G_API void test_out(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
