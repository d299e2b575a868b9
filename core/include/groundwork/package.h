/* SPDX-License-Identifier: MIT */
/**
 * @defgroup package Package name
 * @ingroup core
 *
 * The package name: prefix of every log line and name of the default configuration file.
 *
 * Threads: the name is not locked. Set it at start-up, before other threads log.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_package_set_name("waterworks");
 * puts(g_package_name); // prints: waterworks
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_PACKAGE_H
#define GROUNDWORK_PACKAGE_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** At most 20 characters and a NUL; empty until g_package_set_name(). Read only for
 *  applications. */
G_API extern char g_package_name[21];

/**
 * Names the package. The name begins every log line, and g_conf_open() with null looks for
 * "./<package>.conf" and "/etc/<package>.conf".
 *
 * @param name  NUL-terminated, copied; cut silently after 20 characters. Not null.
 * @return g_package_name; null, with nothing changed, when `name` is null.
 *
 * @par Errors
 * - ``'name != NULL' FAILED.``: critical; `name` is null.
 *
 * Threads: not locked. Call it once at start-up, before other threads log.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * puts(g_package_set_name("waterworks")); // prints: waterworks
 * @endcode
 */
G_API const char* g_package_set_name(const char* name);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
