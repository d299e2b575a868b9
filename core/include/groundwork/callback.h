/* SPDX-License-Identifier: MIT */
/**
 * @defgroup callback Callback lists
 * @ingroup threads
 *
 * Prioritised callback lists, and a process-wide registry of them by module id.
 *
 * Threads: nothing here is locked. Guard a list, or the registry, that several threads use,
 * and add or remove nothing while another thread executes the same list.
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
 * @return the list, for g_callback_free(); null, with nothing logged, when memory is
 *         exhausted.
 */
G_API GCallback* g_callback_new(void);

/**
 * Frees a callback list and its entries. The data pointers are not touched.
 *
 * @param callback  not null (else logged).
 */
G_API void g_callback_free(GCallback* callback);

/**
 * Adds a function to a callback list, behind those of the same or a smaller priority. The same
 * function and data may be added again; that is another entry.
 *
 * @param callback  not null.
 * @param func      not null.
 * @param data      passed to `func`; not owned, may be null.
 * @param priority  any int; smaller runs earlier.
 * @return 0; -1 when an argument is null (logged as critical) or memory is exhausted. The
 *         list is then unchanged.
 */
G_API int g_callback_add(GCallback* callback, GCallbackFunc func, void* data, int priority);

/**
 * Removes the first entry of a callback list with this function and this data.
 *
 * @param callback  not null.
 * @param func      not null.
 * @param data      as registered.
 * @return 0, whether or not there was such an entry; -1 when an argument is null (logged).
 */
G_API int g_callback_remove(GCallback* callback, GCallbackFunc func, void* data);

/**
 * Calls the functions of a callback list in order until one returns other than 0. A function may
 * remove its own entry, but must leave the entry after it alone.
 *
 * @param callback  not null.
 * @param arg       first argument of each function.
 * @return 0 when all ran; -1 when one stopped the execution, or `callback` is null (logged).
 */
G_API int g_callback_execute(GCallback* callback, void* arg);

/**
 * Creates the registry of modules.
 *
 * @warning An existing one is replaced and not freed; call g_module_cleanup() first.
 *
 * @return 0, also when memory is exhausted: the other functions then find no registry.
 */
G_API int g_module_init(void);

/** Frees the registry of modules with every module's list. Without a registry "hash != NULL" is
 *  logged as a failed check. */
G_API void g_module_cleanup(void);

/**
 * Adds a function to a module's callback list.
 *
 * @param module    any int.
 * @param func      not null.
 * @param data      passed to `func`; not owned.
 * @param priority  as for g_callback_add().
 * @return 0; -1 without a registry, when `func` is null (logged) or memory is exhausted.
 */
G_API int g_module_callback_register(int module, GCallbackFunc func, void* data,
                                     int priority);

/**
 * Removes a function from a module's callback list. The list stays when it becomes empty.
 *
 * @warning Without a registry the result is `module` itself, which programs have come to expect.
 *
 * @param module  as registered.
 * @param func    as registered; not null.
 * @param data    as registered.
 * @return as g_callback_remove(); 0 when the module has no list.
 */
G_API int g_module_callback_cancel(int module, GCallbackFunc func, void* data);

/**
 * Executes a module's callback list.
 *
 * @param module  as registered.
 * @param arg     first argument of each function.
 * @return as g_callback_execute(); 0 without a registry or when the module has no list.
 */
G_API int g_module_callback_execute(int module, void* arg);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
