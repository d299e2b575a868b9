/* SPDX-License-Identifier: MIT */
/**
 * @defgroup log Logging
 * @ingroup core
 *
 * Levelled diagnostics.
 *
 * A message is printed when its level is at least the process-wide threshold, which is
 * 3 (warnings and errors) until g_debug_init() or g_debug_set_level2() changes it. A line
 * reads "[<package>: ][<file>:<line>: ][<tag>]<message>".
 *
 * Threads: any thread may log at any time; each line is emitted by one call, so lines do
 * not mix. Set threshold, handler and package name at start-up: they are not locked.
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
 * @param text  NUL-terminated; a log line comes without a trailing newline, the text of
 *              g_print() exactly as formatted. Valid during the call only.
 * @param arg   as given to g_debug_set_handler().
 * @return passed back by g_log() and g_logv().
 */
typedef int (*GLogHandler)(const char* text, void* arg);

/**
 * Chooses the threshold of the log from marker files: the first of "/tmp/vk_debug" (0),
 * "/tmp/vk_message" (1), "/tmp/vk_information" (2), "/tmp/vk_warning" (3) and
 * "/tmp/vk_error" (4) that exists as a regular file; 99, silence, when none does. Then
 * announces the choice through g_print(), whatever the threshold:
 * "[g_debug_init]: USING DEBUGLEVEL : 99".
 *
 * May be called again at any time to follow markers that came or went.
 */
G_API void g_debug_init(void);

/** Sets the threshold of the log. @param level any value; unchecked. */
G_API void g_debug_set_level2(int level);

/** Does nothing and leaves the threshold of the log alone; g_debug_set_level2() is the setter. Kept
 *  because programs call it and rely on its having no effect. @param level ignored. */
G_API void g_debug_set_level(int level);

/** Tells the threshold of the log. @return the current one. */
G_API int g_debug_get_level(void);

/**
 * Redirects all output of g_log(), g_logv() and g_print().
 *
 * @warning A handler that logs, directly or by a call that fails, is called for its own line,
 * without end.
 *
 * @param handler  receives each text; null sends output to standard error again.
 * @param arg      passed unchanged to the handler; not owned.
 */
G_API void g_debug_set_handler(GLogHandler handler, void* arg);

/**
 * Logs one line. Allocates nothing. Below the threshold it costs one comparison and
 * formats nothing.
 *
 * @param level  see the levels above.
 * @param file   name of the source; shown for levels 0, 2, 3 and 4.
 * @param line   line in the source; shown with `file`.
 * @param fmt    printf format, not null. The message is cut at 1591 bytes, and so is the
 *               whole line, its newline included.
 * @return 1 when the level is below the threshold; else what the handler returned, or
 *         what fputs() returned for standard error.
 */
G_API int g_log(int level, const char* file, int line, const char* fmt, ...) G_PRINTF(4, 5);

/**
 * Logs one line, as g_log(), with an argument list.
 *
 * @param level  as for g_log().
 * @param file   as for g_log().
 * @param line   as for g_log().
 * @param fmt    as for g_log().
 * @param ap     consumed; undefined afterwards.
 * @return as g_log().
 */
G_API int g_logv(int level, const char* file, int line, const char* fmt, va_list ap)
    G_PRINTF(4, 0);

/**
 * Emits formatted text as it is: no threshold, prefix, tag or newline.
 *
 * @param fmt  printf format, not null. At most 1019 bytes are emitted.
 */
G_API void g_print(const char* fmt, ...) G_PRINTF(1, 2);

/** Does nothing; kept as part of the interface. */
G_API void test_out(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
