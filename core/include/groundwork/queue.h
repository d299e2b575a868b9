/* SPDX-License-Identifier: MIT */
/**
 * @defgroup queue Queue
 * @ingroup containers
 *
 * Thread-safe first-in first-out queue of untyped pointers.
 *
 * No function waits for data: taking from an empty queue returns null immediately. A consumer that
 * wants to wait combines the queue with a GThreadEvent.
 *
 * Elements are compared as pointers and never freed by the queue. Two optional functions, which the
 * caller supplies, acquire and release them, for example by counting references. They run on the
 * calling thread:
 *
 * | function     | called by                                    | the queue is then |
 * |--------------|----------------------------------------------|-------------------|
 * | add_func     | g_queue_enqueue(), g_queue_insert()          | not locked        |
 * | release_func | g_queue_dequeue()                            | not locked        |
 * | release_func | g_queue_clear(), g_queue_free(), g_queue_remove() | locked       |
 *
 * A function that is called while the queue is locked must not use that queue, or the thread waits
 * for itself forever. Only g_queue_count() is allowed, and inside a visit g_queue_delete(). A
 * thread that is cancelled or exits inside such a function leaves the queue unlocked and
 * consistent; the element that was being released is then no longer in it. Do not leave such a
 * function by longjmp(). An add function may be left by longjmp(); the element is then not added.
 *
 * A queue may keep up to 64 nodes of elements that left for elements to come; g_queue_clear() and
 * g_queue_free() free them.
 *
 * Threads: every function but g_queue_delete() and g_queue_free() may be called on any thread at
 * any time.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * const char *element;
 *
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_enqueue(queue, "second");
 * while ((element = g_queue_dequeue(queue, NULL)) != NULL) puts(element);
 * // prints: first
 * // prints: second
 * g_queue_free(queue);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_QUEUE_H
#define GROUNDWORK_QUEUE_H

#include <stdint.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A queue; made by g_queue_new(). */
typedef struct GQueue GQueue;

/** Acquires or releases an element, for example by counting references. @param data the
 *  element. */
typedef void (*GQueueHoldFunc)(void* data);

/** Visits an element. @param data the element. @param user_data the caller's.
 *  @return 0 to go on, anything else to stop. */
typedef int (*GQueueFunc)(void* data, void* user_data);

/**
 * Makes an empty queue.
 *
 * @param add_func      called with each element when it is added, without a lock; may be null.
 * @param release_func  called with each element when it leaves the queue; may be null. Unless
 *                      g_queue_dequeue() calls it, or an addition that failed, the queue is locked
 *                      and must not be used.
 * @return the queue, owned by the caller and released with g_queue_free(); null, with nothing
 *         logged, when memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void release(void *data) {
 *   printf("released %s\n", (const char *)data);
 * }
 *
 * GQueue *queue = g_queue_new(NULL, release);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_free(queue); // prints: released first
 * @endcode
 */
G_API GQueue* g_queue_new(GQueueHoldFunc add_func, GQueueHoldFunc release_func);

/**
 * Frees a queue. All elements are removed first, from head to tail, and the release function is
 * called for each with the queue locked.
 *
 * @param queue  from g_queue_new(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: no other thread may use the queue during the call or afterwards.
 *
 * @par Notes
 * Without a release function, the elements are not freed.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, free); // frees each element that leaves
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, g_strdup("first"));
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_free(GQueue* queue);

/**
 * Returns whether a queue is empty.
 *
 * @param queue  from g_queue_new().
 * @return 1 when the queue is empty, 0 when it is not; -1 when `queue` is null.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: any thread at any time. Another thread may change the queue before the caller looks at
 * the result.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * printf("%d\n", g_queue_empty(queue)); // prints: 1
 * g_queue_enqueue(queue, "first");
 * printf("%d\n", g_queue_empty(queue)); // prints: 0
 * g_queue_free(queue);
 * @endcode
 */
G_API int g_queue_empty(GQueue* queue);

/**
 * Adds an element at the tail of a queue. The add function is called first, without a lock.
 *
 * When memory is exhausted the queue is unchanged and nothing is logged. If the add function was
 * called, the release function is called, too; without an add function the element stays the
 * caller's.
 *
 * @param queue  from g_queue_new(); null is logged.
 * @param data   the element. Null is accepted, but looks like "nothing" when it comes out.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: any thread at any time.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_enqueue(queue, "second");
 * puts(g_queue_last(queue)); // prints: second
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_enqueue(GQueue* queue, void* data);

/**
 * Takes the head element of a queue. The release function is called with it, without a lock.
 *
 * @param queue     from g_queue_new().
 * @param expected  null to take whatever is at the head; otherwise the head is taken only if it is
 *                  this element.
 * @return the element; null, with the queue unchanged, when the queue is empty, when its head is
 *         not `expected`, or when `queue` is null.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: any thread at any time. Each element goes to one caller.
 *
 * @par Notes
 * The release function has already run when the element is returned. If it frees elements, the
 * result dangles: only compare it with null.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * puts(g_queue_dequeue(queue, NULL)); // prints: first
 * if (g_queue_dequeue(queue, NULL) == NULL) puts("empty"); // prints: empty
 * g_queue_free(queue);
 * @endcode
 */
G_API void* g_queue_dequeue(GQueue* queue, const void* expected);

/**
 * Returns the head element of a queue, which stays there.
 *
 * @param queue  from g_queue_new().
 * @return the head element; null when the queue is empty, or when `queue` is null.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: any thread at any time. Another thread may take the element before the caller uses it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_enqueue(queue, "second");
 * puts(g_queue_first(queue)); // prints: first
 * g_queue_free(queue);
 * @endcode
 */
G_API void* g_queue_first(GQueue* queue);

/**
 * Returns the tail element of a queue, which stays there.
 *
 * @param queue  from g_queue_new().
 * @return the tail element; null when the queue is empty, or when `queue` is null.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: any thread at any time. Another thread may take the element before the caller uses it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_enqueue(queue, "second");
 * puts(g_queue_last(queue)); // prints: second
 * g_queue_free(queue);
 * @endcode
 */
G_API void* g_queue_last(GQueue* queue);

/**
 * Removes all elements of a queue, from head to tail. The release function is called for each with
 * the queue locked.
 *
 * @param queue  from g_queue_new(); null is logged.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: any thread at any time.
 *
 * @par Notes
 * The release function must not use the queue, except for g_queue_count(): the thread would wait
 * for itself forever.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_clear(queue);
 * printf("%d\n", g_queue_empty(queue)); // prints: 1
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_clear(GQueue* queue);

/**
 * Adds an element to a queue directly after the first occurrence of `sibling`; at the tail when
 * there is none, when `sibling` is null, or when it is the tail element. The add function is called
 * first, without a lock.
 *
 * When memory is exhausted the queue is unchanged and nothing is logged. If the add function was
 * called, the release function is called, too; without an add function the element stays the
 * caller's.
 *
 * @param queue    from g_queue_new(); null is logged.
 * @param sibling  the element to insert after, or null.
 * @param data     the new element; not null.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 * - ``'data != NULL' FAILED.``: critical; `data` is null.
 *
 * Threads: any thread at any time.
 *
 * @par Notes
 * When `sibling` is searched for and not found, the add function is called twice for the one
 * element: a reference count never comes down to zero. Make sure that the sibling is in the queue.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *first = "first";
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, first);
 * g_queue_enqueue(queue, "third");
 * g_queue_insert(queue, first, "second");
 * g_queue_dequeue(queue, NULL);
 * puts(g_queue_first(queue)); // prints: second
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_insert(GQueue* queue, const void* sibling, void* data);

/**
 * Removes the first occurrence of an element from a queue WITHOUT LOCKING, then calls the release
 * function with it.
 *
 * It is for the functions that g_queue_foreach() and g_queue_foreach_reverse() call, which may
 * delete the element that they were given. Elsewhere use g_queue_remove().
 *
 * @param queue  from g_queue_new(); null is logged.
 * @param data   the element; nothing happens when it is not in the queue.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: takes no lock. Call it only where the calling thread has the queue locked, that is,
 * inside a visit.
 *
 * @par Notes
 * Outside a visit it races with other threads.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int drop_old(void *data, void *user_data) {
 *   if (strcmp(data, "old") == 0) g_queue_delete(user_data, data);
 *   return 0;
 * }
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "old");
 * g_queue_enqueue(queue, "new");
 * g_queue_foreach(queue, drop_old, queue);
 * puts(g_queue_first(queue)); // prints: new
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_delete(GQueue* queue, const void* data);

/**
 * Removes the first occurrence of an element from a queue. The release function is called with it,
 * with the queue locked.
 *
 * @param queue  from g_queue_new(); null is logged.
 * @param data   the element; nothing happens when it is not in the queue.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 *
 * Threads: any thread at any time.
 *
 * @par Notes
 * The release function must not use the queue, except for g_queue_count(): the thread would wait
 * for itself forever.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *first = "first";
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, first);
 * g_queue_enqueue(queue, "second");
 * g_queue_remove(queue, first);
 * puts(g_queue_first(queue)); // prints: second
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_remove(GQueue* queue, const void* data);

/**
 * Calls a function for each element of a queue, from head to tail, with the queue locked, until one
 * call returns other than 0.
 *
 * @param queue      from g_queue_new(); null is logged.
 * @param func       called as `func(element, user_data)`; not null. It may delete the element that
 *                   it was given with g_queue_delete(), and must not use the queue otherwise.
 * @param user_data  passed to `func`; stays the caller's; may be null.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 *
 * Threads: any thread at any time. Other threads that use the queue wait until the visit is over. A
 * thread that is cancelled or exits inside `func` leaves the queue unlocked.
 *
 * @par Notes
 * A function that uses the queue, except for g_queue_delete() and g_queue_count(), makes its thread
 * wait for itself forever. Leave `func` by returning, not by longjmp().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(void *data, void *user_data) {
 *   printf("%s%s\n", (const char *)user_data, (const char *)data);
 *   return 0; // go on
 * }
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_enqueue(queue, "second");
 * g_queue_foreach(queue, print, "- ");
 * // prints: - first
 * // prints: - second
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_foreach(GQueue* queue, GQueueFunc func, void* user_data);

/**
 * Calls a function for each element of a queue, from tail to head, with the queue locked, until one
 * call returns other than 0.
 *
 * @param queue      from g_queue_new(); null is logged.
 * @param func       called as `func(element, user_data)`; not null. It may delete the element that
 *                   it was given with g_queue_delete(), and must not use the queue otherwise.
 * @param user_data  passed to `func`; stays the caller's; may be null.
 *
 * @par Errors
 * - ``'queue != NULL' FAILED.``: critical; `queue` is null.
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 *
 * Threads: any thread at any time. Other threads that use the queue wait until the visit is over. A
 * thread that is cancelled or exits inside `func` leaves the queue unlocked.
 *
 * @par Notes
 * A function that uses the queue, except for g_queue_delete() and g_queue_count(), makes its thread
 * wait for itself forever. Leave `func` by returning, not by longjmp().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int print(void *data, void *user_data) {
 *   (void)user_data;
 *   puts(data);
 *   return 0; // go on
 * }
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * g_queue_enqueue(queue, "second");
 * g_queue_foreach_reverse(queue, print, NULL);
 * // prints: second
 * // prints: first
 * g_queue_free(queue);
 * @endcode
 */
G_API void g_queue_foreach_reverse(GQueue* queue, GQueueFunc func, void* user_data);

/**
 * Counts the elements of a queue.
 *
 * @param queue  from g_queue_new(); not null, unchecked.
 * @return the number of elements.
 *
 * Threads: any thread at any time, also inside a visit. It takes no lock, so the number may be out
 * of date.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GQueue *queue = g_queue_new(NULL, NULL);
 * if (queue == NULL) return 1;
 * g_queue_enqueue(queue, "first");
 * printf("%u\n", (unsigned)g_queue_count(queue)); // prints: 1
 * g_queue_free(queue);
 * @endcode
 */
G_API uint32_t g_queue_count(GQueue* queue);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
