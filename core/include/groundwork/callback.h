/* SPDX-License-Identifier: MIT */
/**
 * @defgroup callback Callback lists
 * @ingroup threads
 *
 * Prioritised callback lists, and a process-wide registry of them by module id.
 *
 * Threads: nothing here is locked. Guard a list, or the registry, that several threads use, and add
 * or remove nothing while another thread executes the same list.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int greet(void *arg, void *data) {
 *   printf("%s, %s\n", (const char *)data, (const char *)arg);
 *   return 0; // anything else would end the execution
 * }
 *
 * GCallback *greetings = g_callback_new();
 * if (greetings == NULL) return 1;
 * g_callback_add(greetings, greet, "good night", 20);
 * g_callback_add(greetings, greet, "good morning", 10); // smaller, so earlier
 * g_callback_execute(greetings, "Ada");
 * // prints: good morning, Ada
 * // prints: good night, Ada
 * g_callback_free(greetings);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_CALLBACK_H
#define GROUNDWORK_CALLBACK_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A list of functions in ascending priority; equal priorities in the order of addition. */
typedef struct GCallback GCallback;

/**
 * A registered function.
 *
 * @param arg   as given to the execution.
 * @param data  as given at registration.
 * @return 0 for success; anything else stops the execution.
 */
typedef int (*GCallbackFunc)(void* arg, void* data);

/**
 * Makes an empty callback list.
 *
 * @return the list, owned by the caller and released with g_callback_free(); null, with nothing
 *         logged, when memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GCallback *callbacks = g_callback_new();
 * if (callbacks == NULL) return 1;
 * printf("%d\n", g_callback_execute(callbacks, NULL)); // prints: 0
 * g_callback_free(callbacks);
 * @endcode
 */
G_API GCallback* g_callback_new(void);

/**
 * Frees a callback list and its entries, but not the data pointers.
 *
 * @param callback  from g_callback_new(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'callback != NULL' FAILED.``: critical; `callback` is null.
 *
 * Threads: no other thread may use the list during the call or afterwards.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GCallback *callbacks = g_callback_new();
 * if (callbacks == NULL) return 1;
 * g_callback_free(callbacks);
 * @endcode
 */
G_API void g_callback_free(GCallback* callback);

/**
 * Adds a function to a callback list, after those of the same or a smaller priority. The same
 * function and data may be added again; that is another entry.
 *
 * @param callback  from g_callback_new(); not null.
 * @param func      the function; not null.
 * @param data      passed to `func`; stays the caller's; may be null.
 * @param priority  any int; smaller runs earlier.
 * @return 0; -1, with the list unchanged, when `callback` or `func` is null, or, with nothing
 *         logged, when memory is exhausted.
 *
 * @par Errors
 * - ``'callback != NULL' FAILED.``: critical; `callback` is null.
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 *
 * Threads: no lock; callers that share a list lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(void *arg, void *data) {
 *   printf("%s%s\n", (const char *)data, (const char *)arg);
 *   return 0;
 * }
 *
 * GCallback *callbacks = g_callback_new();
 * if (callbacks == NULL) return 1;
 * g_callback_add(callbacks, print, "second: ", 2);
 * g_callback_add(callbacks, print, "first: ", 1);
 * g_callback_execute(callbacks, "run");
 * // prints: first: run
 * // prints: second: run
 * g_callback_free(callbacks);
 * @endcode
 */
G_API int g_callback_add(GCallback* callback, GCallbackFunc func, void* data, int priority);

/**
 * Removes the first entry of a callback list with a function and its data.
 *
 * @param callback  from g_callback_new(); not null.
 * @param func      the function, as registered; not null.
 * @param data      the data, as registered; compared as a pointer.
 * @return 0, whether or not there was such an entry; -1 when `callback` or `func` is null.
 *
 * @par Errors
 * - ``'callback != NULL' FAILED.``: critical; `callback` is null.
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 *
 * Threads: no lock; callers that share a list lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(void *arg, void *data) {
 *   (void)data;
 *   puts(arg);
 *   return 0;
 * }
 *
 * GCallback *callbacks = g_callback_new();
 * if (callbacks == NULL) return 1;
 * g_callback_add(callbacks, print, NULL, 0);
 * g_callback_execute(callbacks, "once"); // prints: once
 * g_callback_remove(callbacks, print, NULL);
 * g_callback_execute(callbacks, "twice"); // calls nobody
 * g_callback_free(callbacks);
 * @endcode
 */
G_API int g_callback_remove(GCallback* callback, GCallbackFunc func, void* data);

/**
 * Calls the functions of a callback list in order until one returns other than 0.
 *
 * @param callback  from g_callback_new(); not null.
 * @param arg       first argument of each function; stays the caller's; may be null.
 * @return 0 when all ran; -1 when one stopped the execution, or when `callback` is null.
 *
 * @par Errors
 * - ``'callback != NULL' FAILED.``: critical; `callback` is null.
 *
 * Threads: no lock; nothing may be added or removed on another thread during the call.
 *
 * @par Notes
 * A function may remove its own entry, but not the entry after it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int refuse(void *arg, void *data) {
 *   (void)arg, (void)data;
 *   return 1; // stops the execution
 * }
 *
 * GCallback *callbacks = g_callback_new();
 * if (callbacks == NULL) return 1;
 * g_callback_add(callbacks, refuse, NULL, 0);
 * printf("%d\n", g_callback_execute(callbacks, NULL)); // prints: -1
 * g_callback_free(callbacks);
 * @endcode
 */
G_API int g_callback_execute(GCallback* callback, void* arg);

/**
 * Creates the registry of modules.
 *
 * @return 0, also when memory is exhausted: the other functions then find no registry.
 *
 * Threads: no lock; call it at start-up.
 *
 * @par Notes
 * An existing registry is replaced and not freed: its callbacks never run again, and its memory
 * leaks. Call g_module_cleanup() first.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_module_init();
 * printf("%d\n", g_module_callback_execute(7, NULL)); // prints: 0
 * g_module_cleanup();
 * @endcode
 */
G_API int g_module_init(void);

/**
 * Frees the registry of modules with the callback list of every module.
 *
 * @par Errors
 * - ``'hash != NULL' FAILED.``: critical; there is no registry.
 *
 * Threads: no lock; no other thread may use the registry during the call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_module_init();
 * g_module_cleanup();
 * @endcode
 */
G_API void g_module_cleanup(void);

/**
 * Adds a function to the callback list of a module, after those of the same or a smaller priority.
 * The module's list is made when it is first needed.
 *
 * @param module    id of the module, any int.
 * @param func      the function; not null.
 * @param data      passed to `func`; stays the caller's; may be null.
 * @param priority  any int; smaller runs earlier.
 * @return 0; -1 when `func` is null, or, with nothing logged, when there is no registry or memory
 *         is exhausted.
 *
 * @par Errors
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 *
 * Threads: no lock; callers that share the registry lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(void *arg, void *data) {
 *   (void)data;
 *   puts(arg);
 *   return 0;
 * }
 *
 * g_module_init();
 * g_module_callback_register(7, print, NULL, 0);
 * g_module_callback_execute(7, "seven"); // prints: seven
 * g_module_cleanup();
 * @endcode
 */
G_API int g_module_callback_register(int module, GCallbackFunc func, void* data,
                                     int priority);

/**
 * Removes the first entry with a function and its data from the callback list of a module. The list
 * stays when it becomes empty.
 *
 * @param module  id of the module, as registered.
 * @param func    the function, as registered; not null.
 * @param data    the data, as registered; compared as a pointer.
 * @return 0, whether or not there was such an entry; -1 when the module has a list and `func` is
 *         null. Without a registry, `module`.
 *
 * @par Errors
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 *
 * Threads: no lock; callers that share the registry lock around it.
 *
 * @par Notes
 * Without a registry the result is the id of the module, which can look like success or failure.
 * Programs expect it as it is: call g_module_init() first.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(void *arg, void *data) {
 *   (void)data;
 *   puts(arg);
 *   return 0;
 * }
 *
 * g_module_init();
 * g_module_callback_register(7, print, NULL, 0);
 * printf("%d\n", g_module_callback_cancel(7, print, NULL)); // prints: 0
 * g_module_callback_execute(7, "seven");                    // calls nobody
 * g_module_cleanup();
 * @endcode
 */
G_API int g_module_callback_cancel(int module, GCallbackFunc func, void* data);

/**
 * Calls the functions in the callback list of a module in order until one returns other than 0.
 *
 * @param module  id of the module, as registered.
 * @param arg     first argument of each function; stays the caller's; may be null.
 * @return 0 when all ran, when the module has no list, or when there is no registry; -1 when one
 *         stopped the execution.
 *
 * Threads: no lock; nothing may be added or removed on another thread during the call.
 *
 * @par Notes
 * A function may remove its own entry, but not the entry after it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(void *arg, void *data) {
 *   printf("%s%s\n", (const char *)data, (const char *)arg);
 *   return 0;
 * }
 *
 * g_module_init();
 * g_module_callback_register(7, print, "module 7: ", 0);
 * g_module_callback_execute(7, "run"); // prints: module 7: run
 * g_module_cleanup();
 * @endcode
 */
G_API int g_module_callback_execute(int module, void* arg);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
