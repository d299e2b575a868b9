/* SPDX-License-Identifier: MIT */
/**
 * @defgroup thread Threads, mutexes and events
 * @ingroup threads
 *
 * Threads, mutexes and events over POSIX threads (IEEE Std 1003.1).
 *
 * Failures of the system are logged as warnings with the text of `errno`; failed argument
 * checks as critical.
 *
 * Handles belong to whoever made them, who gives them back with g_thread_wait() or
 * g_thread_free(), g_thread_mutex_free() and g_thread_event_free().
 *
 * Threads: every function may be called on any thread, as long as no other thread frees the
 * handle meanwhile.
 *
 * A child of fork() has only the thread that forked. It may start threads of its own; handles of
 * the parent's other threads may be freed there with g_thread_free(), but neither cancelled nor
 * waited for. A mutex or an event, also the one inside a configuration, a queue or a ring buffer,
 * that another thread was using at the moment of the fork stays locked in the child for ever:
 * fork before threads use what the child needs, or let the child call exec().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * struct counter {
 *   GMutex *lock;
 *   int count;
 * };
 *
 * static void *count(void *arg) {
 *   struct counter *counter = arg;
 *
 *   for (int i = 0; i < 1000; ++i) {
 *     g_thread_mutex_lock(counter->lock);
 *     ++counter->count;
 *     g_thread_mutex_unlock(counter->lock);
 *   }
 *   return NULL;
 * }
 *
 * struct counter counter = {g_thread_mutex_new(), 0};
 * GThread *first = g_thread_create(count, &counter, "first");
 * GThread *second = g_thread_create(count, &counter, "second");
 * g_thread_wait(first); // frees the handle, too
 * g_thread_wait(second);
 * printf("%d\n", counter.count); // prints: 2000
 * g_thread_mutex_free(counter.lock);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_THREAD_H
#define GROUNDWORK_THREAD_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A thread. Its first field is the `pthread_t`, so the handle may be read as a pointer to
 *  the id; the rest is private. */
typedef struct GThread GThread;

/** A mutex of the platform's default kind: it is not recursive. */
typedef struct GMutex GMutex;

/** A condition with a mutex of its own. It remembers nothing: a signal that nobody waits
 *  for is lost. */
typedef struct GThreadEvent GThreadEvent;

/** What a thread runs. @param arg as given to g_thread_create(). @return ignored. */
typedef void* (*GThreadFunc)(void* arg);

/** @name Threads */
/** @{ */

/**
 * Starts a thread with default attributes. It can be cancelled, deferred, as POSIX has it.
 *
 * @warning When the system cannot start the thread a handle is returned all the same and nothing
 * is logged; `func` then never runs, and g_thread_wait() on that handle returns at once.
 *
 * @param func  what it runs; not null.
 * @param arg   its argument; not owned.
 * @param name  for the reader of the source; not used, may be null.
 * @return a handle that the caller gives to g_thread_wait() or g_thread_free(). Null when
 *         `func` is null (logged) or memory is exhausted.
 */
G_API GThread* g_thread_create(GThreadFunc func, void* arg, const char* name);

/**
 * Waits for the end of a thread and frees the handle. A cancellation point.
 *
 * @param thread  not null; invalid afterwards.
 * @return 0, also when there was nothing to wait for; -1 when `thread` is null (logged).
 */
G_API int g_thread_wait(GThread* thread);

/**
 * Asks a thread to stop at its next cancellation point. The handle stays valid and must
 * still be waited for or freed.
 *
 * @param thread  not null.
 * @return 0, whether or not the thread still ran; -1 when `thread` is null (logged).
 */
G_API int g_thread_cancel(GThread* thread);

/**
 * Frees the handle of a thread and leaves the thread alone: it is neither joined nor detached, so
 * it keeps its stack until the process ends. Use g_thread_wait() for created threads.
 *
 * @param thread  may be null.
 */
G_API void g_thread_free(GThread* thread);

/**
 * Makes a handle of the calling thread.
 *
 * @return the handle, for g_thread_free(); null when memory is exhausted.
 */
G_API GThread* g_thread_self(void);

/**
 * Compares the threads of two handles.
 *
 * @param thread1  not null.
 * @param thread2  not null.
 * @return 1 when both are of the same thread, else 0; 0 when one is null (logged).
 */
G_API int g_thread_check_same(GThread* thread1, GThread* thread2);

/**
 * Sets scheduling class and priority of a thread.
 *
 * | priority | class       | POSIX priority on Linux |
 * |----------|-------------|-------------------------|
 * | 0        | SCHED_OTHER | 0                       |
 * | 1 to 5   | SCHED_RR    | 18, 34, 50, 66, 82      |
 * | 6        | SCHED_FIFO  | 99                      |
 *
 * @param thread    not null.
 * @param priority  0 lowest to 6 highest; 1 to 6 need real-time privileges.
 * @return 0; -1 when `thread` is null (critical), the priority is out of range
 *         ("unknown priority %d", a warning) or the system refuses ("can't set priority to
 *         %d. - %s.", a warning).
 */
G_API int g_thread_set_priority(GThread* thread, int priority);

/** @} */

/** @name Mutexes */
/** @{ */

/**
 * Makes an unlocked mutex.
 *
 * @return the mutex, for g_thread_mutex_free(); null, with nothing logged, when memory is
 *         exhausted.
 */
G_API GMutex* g_thread_mutex_new(void);

/**
 * Unlocks a mutex, whoever holds it, and frees it. Waits for nobody: no thread may be using
 * the mutex any more.
 *
 * @param mutex  not null (else logged).
 */
G_API void g_thread_mutex_free(GMutex* mutex);

/**
 * Locks a mutex. The owner must not lock again: it would wait for itself.
 *
 * @param mutex  not null.
 * @return 0; -1 when `mutex` is null (logged as critical).
 */
G_API int g_thread_mutex_lock(GMutex* mutex);

/**
 * Locks a mutex if that is possible at once.
 *
 * @warning The result does not tell. It is 0 also when the mutex was busy, and the caller then
 * does not hold it. Do not use it to guard data; g_thread_mutex_try() of <groundwork/safe.h> tells.
 *
 * @param mutex  not null.
 * @return 0; -1 when `mutex` is null (logged as critical).
 */
G_API int g_thread_mutex_trylock(GMutex* mutex);

/**
 * Unlocks a mutex.
 *
 * @param mutex  not null; held by the caller.
 * @return 0; -1 when `mutex` is null (logged as critical).
 */
G_API int g_thread_mutex_unlock(GMutex* mutex);

/** @} */

/** @name Events */
/** @{ */

/**
 * Makes an event.
 *
 * @return the event, for g_thread_event_free(); null, with nothing logged, when memory is
 *         exhausted.
 */
G_API GThreadEvent* g_thread_event_new(void);

/**
 * Frees an event and wakes one waiter. Returns without waiting for it; other calls must
 * not be under way or follow.
 *
 * @param event  not null (else logged).
 */
G_API void g_thread_event_free(GThreadEvent* event);

/**
 * Waits for an event without limit: for a signal or broadcast made after the call began. As with
 * any POSIX condition it may also return without one. A cancellation point.
 *
 * @param event  not null.
 * @return 0 when woken; -1 when `event` is null (logged).
 */
G_API int g_thread_event_wait(GThreadEvent* event);

/**
 * Waits for an event for `timeout` milliseconds by the wall clock, then waits AGAIN,
 * without limit. A cancellation point.
 *
 * @warning The time-out bounds nothing. However the first wait ended, by a signal too, the
 * call returns only after a signal or broadcast that comes later. Programs are built on it;
 * where a bounded wait is needed use g_thread_event_wait_for() of <groundwork/safe.h>.
 *
 * When the microseconds of the clock and of `timeout` happen to sum to exactly one second,
 * or to less than none with a negative `timeout`, the first wait fails at once, which is
 * logged as critical: "g_thread_event_wait_timeout() failed".
 *
 * @param event    not null.
 * @param timeout  length of the first wait in milliseconds.
 * @return 0 when woken from the second wait; -1 when `event` is null (logged).
 */
G_API int g_thread_event_wait_timeout(GThreadEvent* event, int timeout);

/**
 * Wakes one thread that waits for an event, if there is any.
 *
 * @param event  not null.
 * @return 0; -1 when `event` is null (logged).
 */
G_API int g_thread_event_signal(GThreadEvent* event);

/**
 * Wakes all threads that wait for an event.
 *
 * @param event  not null.
 * @return 0; -1 when `event` is null (logged).
 */
G_API int g_thread_event_broadcast(GThreadEvent* event);

/** @} */

/** @} */

#ifdef __cplusplus
}
#endif

#endif
