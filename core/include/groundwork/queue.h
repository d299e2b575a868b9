/* SPDX-License-Identifier: MIT */
/**
 * @defgroup queue Queue
 * @ingroup containers
 *
 * Thread-safe first-in first-out queue of untyped pointers.
 *
 * Nothing blocks waiting for data: taking from an empty queue answers null at once. A
 * consumer that wants to wait pairs the queue with a GThreadEvent.
 *
 * Elements are compared as pointers and never freed by the queue; the two optional
 * callbacks are the caller's hooks. They run on the calling thread:
 *
 * | callback     | called by                                    | the queue is then |
 * |--------------|----------------------------------------------|-------------------|
 * | add_func     | g_queue_enqueue(), g_queue_insert()          | not locked        |
 * | release_func | g_queue_dequeue()                            | not locked        |
 * | release_func | g_queue_clear(), g_queue_free(), g_queue_remove() | locked       |
 *
 * A function called while the queue is locked must not use that queue, or it waits for
 * itself; only g_queue_count(), and g_queue_delete() as said there, are allowed. A thread
 * that is cancelled or exits inside such a function leaves the queue unlocked and whole;
 * the element that was being released is then out of it. longjmp() out of such a function is
 * not allowed; out of an add function it is, and the element does not enter.
 *
 * Threads: every function but g_queue_delete() and g_queue_free() may be called at any time.
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

/** Takes or gives up a hold on an element. @param data the element. */
typedef void (*GQueueHoldFunc)(void* data);

/** Visits an element. @param data the element. @param user_data the caller's.
 *  @return 0 to go on, anything else to stop. */
typedef int (*GQueueFunc)(void* data, void* user_data);

/**
 * Makes an empty queue.
 *
 * @param add_func      called with each element as it enters; may be null.
 * @param release_func  called with each element as it leaves; may be null.
 * @return a queue to be released with g_queue_free(); null, with nothing logged, when memory
 *         is exhausted.
 */
G_API GQueue* g_queue_new(GQueueHoldFunc add_func, GQueueHoldFunc release_func);

/** Clears a queue as g_queue_clear() does and frees it. No other thread may use it any
 *  more. @param queue not null (logged as critical). */
G_API void g_queue_free(GQueue* queue);

/** Tells whether a queue is empty. @param queue not null (logged as critical).
 *  @return 1 when the queue is empty, 0 when not; -1 on a failed check. */
G_API int g_queue_empty(GQueue* queue);

/**
 * Adds an element at the tail of a queue, calling add_func first.
 *
 * When memory is exhausted the queue is unchanged and nothing is logged. If add_func was
 * called, release_func is, too; without add_func the element stays the caller's.
 *
 * @param queue  not null (logged as critical).
 * @param data   the element; null is accepted but looks like "nothing" when it comes out.
 */
G_API void g_queue_enqueue(GQueue* queue, void* data);

/**
 * Takes the head element of a queue, or only that one element if it is the head.
 *
 * @warning release_func has run on the element when it is returned. If it frees elements,
 * the result is dangling and tells no more than that there was one.
 *
 * @param queue     not null (logged as critical).
 * @param expected  null for whatever is at the head; else the element that must be there.
 * @return the element; null, with the queue unchanged, when the queue is empty, its head is
 *         not `expected`, or a check failed.
 */
G_API void* g_queue_dequeue(GQueue* queue, const void* expected);

/** Looks at the head of a queue. @param queue not null (logged as critical).
 *  @return the head element, which stays; null when the queue is empty. */
G_API void* g_queue_first(GQueue* queue);

/** Looks at the tail of a queue. @param queue not null (logged as critical).
 *  @return the tail element, which stays; null when the queue is empty. */
G_API void* g_queue_last(GQueue* queue);

/** Removes all elements of a queue, calling release_func on each from head to tail with the
 *  queue locked. @param queue not null (logged as critical). */
G_API void g_queue_clear(GQueue* queue);

/**
 * Adds an element to a queue directly after the first one that is `sibling`; at the tail when there
 * is none, when `sibling` is null or when it is the tail element.
 *
 * @warning When `sibling` is looked for and not found, add_func is called twice for the one
 * element. A callback that counts references sees two.
 *
 * Exhausted memory is treated as by g_queue_enqueue().
 *
 * @param queue    not null (logged as critical).
 * @param sibling  the element to follow, or null.
 * @param data     the new element; not null (logged as critical).
 */
G_API void g_queue_insert(GQueue* queue, const void* sibling, void* data);

/**
 * Removes an element from a queue WITHOUT LOCKING, the first occurrence, then calls release_func
 * on it.
 * For callers inside g_queue_foreach() or g_queue_foreach_reverse(), whose function may
 * delete the element that it was given. Elsewhere use g_queue_remove().
 *
 * @param queue  not null (logged as critical).
 * @param data   the element; nothing happens when it is not there.
 */
G_API void g_queue_delete(GQueue* queue, const void* data);

/** Removes an element from a queue, the first occurrence, calling release_func with the queue
 *  locked.
 *  @param queue not null (logged as critical).
 *  @param data the element; nothing happens when it is not there. */
G_API void g_queue_remove(GQueue* queue, const void* data);

/** Visits the elements of a queue: calls `func(element, user_data)` from head to tail with the
 *  queue locked, until one call returns non-zero.
 *  @param queue not null (logged as critical). @param func not null (logged as critical).
 *  @param user_data passed on. */
G_API void g_queue_foreach(GQueue* queue, GQueueFunc func, void* user_data);

/** Visits the elements of a queue from tail to head, otherwise as g_queue_foreach().
 *  @param queue not null (logged as critical). @param func not null (logged as critical).
 *  @param user_data passed on. */
G_API void g_queue_foreach_reverse(GQueue* queue, GQueueFunc func, void* user_data);

/** Counts the elements of a queue. @param queue not null; UNCHECKED. @return the number, read
 *  without the lock and so perhaps out of date. */
G_API uint32_t g_queue_count(GQueue* queue);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
