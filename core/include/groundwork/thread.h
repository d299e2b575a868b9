/* SPDX-License-Identifier: MIT */
/**
 * @defgroup thread Threads, mutexes and events
 * @ingroup threads
 *
 * Threads, mutexes and events over POSIX threads (IEEE Std 1003.1).
 *
 * System failures are logged as warnings with the text of `errno`, failed argument checks as
 * critical.
 *
 * Handles belong to whoever made them and are released with g_thread_wait() or g_thread_free(),
 * g_thread_mutex_free() and g_thread_event_free().
 *
 * A child of fork() has only the thread that forked. It may start threads of its own. Handles of
 * the parent's other threads may be freed there with g_thread_free(), but neither cancelled nor
 * waited for. A mutex or an event, even one inside a configuration, a queue or a ring buffer, that
 * another thread was using at the moment of the fork stays locked in the child forever: create what
 * the child needs after the fork, fork before other threads use it, or let the child call exec().
 *
 * Threads: every function may be called on any thread, as long as no other thread frees the handle
 * during the call.
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
 * Starts a thread with default attributes. It can be cancelled (deferred, the default of POSIX).
 *
 * @param func  the function that the thread runs; not null.
 * @param arg   passed to `func`; stays the caller's; may be null.
 * @param name  for the reader of the source; not used, may be null.
 * @return a handle, owned by the caller and released with g_thread_wait() or g_thread_free(); null
 *         when `func` is null, or, with nothing logged, when memory is exhausted.
 *
 * @par Errors
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 *
 * Threads: any thread.
 *
 * Standard: pthread_create(), POSIX.
 *
 * @par Notes
 * When the system cannot start the thread, a handle is returned all the same and nothing is logged;
 * `func` then never runs, and g_thread_wait() on that handle returns immediately. Let the function
 * report that it runs where that matters.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void *greet(void *arg) {
 *   puts(arg);
 *   return NULL;
 * }
 *
 * GThread *thread = g_thread_create(greet, "hello", "greeter");
 * if (thread == NULL) return 1;
 * g_thread_wait(thread); // prints: hello
 * @endcode
 */
G_API GThread* g_thread_create(GThreadFunc func, void* arg, const char* name);

/**
 * Waits for the end of a thread and frees its handle. A cancellation point.
 *
 * @param thread  from g_thread_create(), invalid afterwards; not null.
 * @return 0, also when there was no thread to wait for; -1 when `thread` is null.
 *
 * @par Errors
 * - ``'thread != NULL' FAILED.``: critical; `thread` is null.
 *
 * Threads: any thread but the one waited for. Each handle is waited for once.
 *
 * Standard: pthread_join(), POSIX.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void *work(void *arg) {
 *   *(int *)arg = 42;
 *   return NULL; // not passed on; hand results over in the argument
 * }
 *
 * int result = 0;
 * GThread *thread = g_thread_create(work, &result, "worker");
 * if (thread == NULL) return 1;
 * g_thread_wait(thread);
 * printf("%d\n", result); // prints: 42
 * @endcode
 */
G_API int g_thread_wait(GThread* thread);

/**
 * Asks a thread to stop at its next cancellation point. The handle stays valid and must still be
 * waited for or freed.
 *
 * @param thread  from g_thread_create() or g_thread_self(); not null.
 * @return 0, whether or not the thread was still running; -1 when `thread` is null.
 *
 * @par Errors
 * - ``'thread != NULL' FAILED.``: critical; `thread` is null.
 *
 * Threads: any thread.
 *
 * Standard: pthread_cancel(), POSIX.
 *
 * @par Notes
 * What the thread has locked or allocated at the cancellation point stays so, unless it has pushed
 * a cleanup handler.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void *sleep_long(void *arg) {
 *   g_delay(*(int *)arg); // a cancellation point
 *   return NULL;
 * }
 *
 * int hour = 3600000;
 * GThread *thread = g_thread_create(sleep_long, &hour, "sleeper");
 * if (thread == NULL) return 1;
 * g_thread_cancel(thread);
 * g_thread_wait(thread);
 * puts("stopped"); // prints: stopped
 * @endcode
 */
G_API int g_thread_cancel(GThread* thread);

/**
 * Frees the handle of a thread. The thread itself is neither joined nor detached, so it keeps its
 * stack until the process ends: release threads from g_thread_create() with g_thread_wait().
 *
 * @param thread  from g_thread_create() or g_thread_self(), invalid afterwards; may be null.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThread *self = g_thread_self();
 * if (self == NULL) return 1;
 * g_thread_set_priority(self, 0);
 * g_thread_free(self);
 * @endcode
 */
G_API void g_thread_free(GThread* thread);

/**
 * Makes a handle of the calling thread.
 *
 * @return the handle, owned by the caller and released with g_thread_free(); null, with nothing
 *         logged, when memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThread *self = g_thread_self(), *again = g_thread_self();
 * printf("%d\n", g_thread_check_same(self, again)); // prints: 1
 * g_thread_free(self);
 * g_thread_free(again);
 * @endcode
 */
G_API GThread* g_thread_self(void);

/**
 * Compares the threads of two handles.
 *
 * @param thread1  from g_thread_create() or g_thread_self(); not null.
 * @param thread2  from g_thread_create() or g_thread_self(); not null.
 * @return 1 when both are handles of the same thread, else 0; 0 when one is null.
 *
 * @par Errors
 * - ``'(thread1 != NULL) && (thread2 != NULL)' FAILED.``: critical; a handle is null.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThread *self = g_thread_self(), *again = g_thread_self();
 * printf("%d\n", g_thread_check_same(self, again)); // prints: 1
 * g_thread_free(self);
 * g_thread_free(again);
 * @endcode
 */
G_API int g_thread_check_same(GThread* thread1, GThread* thread2);

/**
 * Sets the scheduling class and the priority of a thread.
 *
 * | priority | class       | POSIX priority on Linux |
 * |----------|-------------|-------------------------|
 * | 0        | SCHED_OTHER | 0                       |
 * | 1 to 5   | SCHED_RR    | 18, 34, 50, 66, 82      |
 * | 6        | SCHED_FIFO  | 99                      |
 *
 * @param thread    from g_thread_create() or g_thread_self(); not null.
 * @param priority  0 lowest to 6 highest; 1 to 6 need real-time privileges.
 * @return 0; -1 when `thread` is null, when the priority is out of range, or when the system
 *         refuses.
 *
 * @par Errors
 * - ``'thread != NULL' FAILED.``: critical; `thread` is null.
 * - ``unknown priority %d``: warning, with the priority; it is not 0 to 6.
 * - ``can't set priority to %d. - %s.``: warning, with the priority and the text of `errno`, which
 *   may be that of an earlier failure; the system refuses, usually for lack of privileges.
 *
 * Threads: any thread.
 *
 * Standard: pthread_setschedparam(), POSIX.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThread *self = g_thread_self();
 * if (self == NULL) return 1;
 * printf("%d\n", g_thread_set_priority(self, 0)); // prints: 0
 * g_thread_free(self);
 * @endcode
 */
G_API int g_thread_set_priority(GThread* thread, int priority);

/** @} */

/** @name Mutexes */
/** @{ */

/**
 * Makes an unlocked mutex. It is not recursive.
 *
 * @return the mutex, owned by the caller and released with g_thread_mutex_free(); null, with
 *         nothing logged, when memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GMutex *mutex = g_thread_mutex_new();
 * if (mutex == NULL) return 1;
 * g_thread_mutex_lock(mutex);
 * g_thread_mutex_unlock(mutex);
 * g_thread_mutex_free(mutex);
 * @endcode
 */
G_API GMutex* g_thread_mutex_new(void);

/**
 * Unlocks a mutex, whoever holds it, and frees it.
 *
 * @param mutex  from g_thread_mutex_new(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'mutex != NULL' FAILED.``: critical; `mutex` is null.
 * - ``can't destroy mutex - %s``: warning, with the text of `errno`; the system refuses. The memory
 *   is freed all the same.
 *
 * Threads: no other thread may use the mutex during the call or afterwards; the call does not wait
 * for any.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GMutex *mutex = g_thread_mutex_new();
 * if (mutex == NULL) return 1;
 * g_thread_mutex_lock(mutex);
 * g_thread_mutex_free(mutex); // unlocks it first
 * @endcode
 */
G_API void g_thread_mutex_free(GMutex* mutex);

/**
 * Locks a mutex, waiting until it is free.
 *
 * @param mutex  from g_thread_mutex_new(); not null.
 * @return 0; -1 when `mutex` is null.
 *
 * @par Errors
 * - ``'mutex != NULL' FAILED.``: critical; `mutex` is null.
 *
 * Threads: any thread but the one that holds the mutex, which would wait for itself forever.
 *
 * Standard: pthread_mutex_lock(), POSIX.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GMutex *mutex = g_thread_mutex_new();
 * if (mutex == NULL) return 1;
 * g_thread_mutex_lock(mutex);
 * puts("one thread at a time"); // prints: one thread at a time
 * g_thread_mutex_unlock(mutex);
 * g_thread_mutex_free(mutex);
 * @endcode
 */
G_API int g_thread_mutex_lock(GMutex* mutex);

/**
 * Locks a mutex if that is possible without waiting. The result does not say whether it was.
 *
 * @param mutex  from g_thread_mutex_new(); not null.
 * @return 0, whether or not the caller holds the mutex now; -1 when `mutex` is null.
 *
 * @par Errors
 * - ``'mutex != NULL' FAILED.``: critical; `mutex` is null.
 *
 * Threads: any thread.
 *
 * @par Notes
 * The result is 0 also when the mutex was busy, and the caller then does not hold it. Do not use
 * this function to guard data: a caller who believes that it holds the mutex later unlocks another
 * thread's. g_thread_mutex_try() of <groundwork/safe.h> returns which it was.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GMutex *mutex = g_thread_mutex_new();
 * if (mutex == NULL) return 1;
 * printf("%d\n", g_thread_mutex_trylock(mutex)); // prints: 0
 * printf("%d\n", g_thread_mutex_trylock(mutex)); // prints: 0
 * g_thread_mutex_free(mutex);
 * @endcode
 */
G_API int g_thread_mutex_trylock(GMutex* mutex);

/**
 * Unlocks a mutex.
 *
 * @param mutex  from g_thread_mutex_new(), held by the caller; not null.
 * @return 0; -1 when `mutex` is null.
 *
 * @par Errors
 * - ``'mutex != NULL' FAILED.``: critical; `mutex` is null.
 *
 * Threads: the thread that holds the mutex.
 *
 * Standard: pthread_mutex_unlock(), POSIX.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GMutex *mutex = g_thread_mutex_new();
 * if (mutex == NULL) return 1;
 * g_thread_mutex_lock(mutex);
 * g_thread_mutex_unlock(mutex);
 * g_thread_mutex_free(mutex);
 * @endcode
 */
G_API int g_thread_mutex_unlock(GMutex* mutex);

/** @} */

/** @name Events */
/** @{ */

/**
 * Makes an event.
 *
 * @return the event, owned by the caller and released with g_thread_event_free(); null, with
 *         nothing logged, when memory is exhausted.
 *
 * @par Errors
 * - ``can't init cond - %s``: warning, with the text of `errno`; the system refuses. The event is
 *   returned all the same.
 *
 * Threads: any thread.
 *
 * @par Notes
 * An event remembers nothing: a signal that nobody waits for is lost. Where that matters use the
 * tickets of <groundwork/safe.h>: g_thread_event_ticket() before the look at the data,
 * g_thread_event_wait_for() after it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThreadEvent *event = g_thread_event_new();
 * if (event == NULL) return 1;
 * g_thread_event_signal(event); // nobody waits: lost
 * g_thread_event_free(event);
 * @endcode
 */
G_API GThreadEvent* g_thread_event_new(void);

/**
 * Frees an event and wakes one thread that waits for it.
 *
 * @param event  from g_thread_event_new(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'event != NULL' FAILED.``: critical; `event` is null.
 * - ``can't destroy cond - %s``: warning, with the text of `errno`; the system refuses. The memory
 *   is freed all the same.
 *
 * Threads: waits that began before may still be running; the last one to end releases the memory.
 * No other call may use the event during this one or afterwards.
 *
 * @par Notes
 * One waiter is woken, not all: the others of g_thread_event_wait() go on waiting. Call
 * g_thread_event_broadcast() first.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThreadEvent *event = g_thread_event_new();
 * if (event == NULL) return 1;
 * g_thread_event_broadcast(event); // let all waiters go
 * g_thread_event_free(event);
 * @endcode
 */
G_API void g_thread_event_free(GThreadEvent* event);

/**
 * Waits, without a limit, for a signal or broadcast of an event that comes after the call began.
 * Like any POSIX condition it may also return without one. A cancellation point.
 *
 * @param event  from g_thread_event_new(); not null.
 * @return 0 when woken; -1 when `event` is null; a positive error number when the system refuses.
 *
 * @par Errors
 * - ``'event != NULL' FAILED.``: critical; `event` is null.
 * - ``can't wait cond - %s``: warning, with the text of `errno`; the system refuses.
 *
 * Threads: any number of threads at a time.
 *
 * Standard: pthread_cond_wait(), POSIX.
 *
 * @par Notes
 * A signal that comes before the call is lost, and the wait then lasts until the next one.
 * g_thread_event_wait_for() of <groundwork/safe.h> loses none.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void *wait_for(void *event) {
 *   g_thread_event_wait(event);
 *   puts("woken");
 *   return NULL;
 * }
 *
 * GThreadEvent *event = g_thread_event_new();
 * if (event == NULL) return 1;
 * GThread *waiter = g_thread_create(wait_for, event, "waiter");
 * g_delay(500); // a signal that comes too early would be lost
 * g_thread_event_signal(event);
 * g_thread_wait(waiter); // prints: woken
 * g_thread_event_free(event);
 * @endcode
 */
G_API int g_thread_event_wait(GThreadEvent* event);

/**
 * Waits for an event for some time by the wall clock, then waits AGAIN, without a limit. A
 * cancellation point.
 *
 * However the first wait ended, even by a signal, the call returns only after a signal or broadcast
 * that comes later.
 *
 * @param event    from g_thread_event_new(); not null.
 * @param timeout  length of the first wait in milliseconds.
 * @return 0 when woken from the second wait; -1 when `event` is null; a positive error number when
 *         the system refuses.
 *
 * @par Errors
 * - ``'event != NULL' FAILED.``: critical; `event` is null.
 * - ``g_thread_event_wait_timeout() failed``: critical; the first wait failed. That happens when
 *   the microseconds of the clock and of `timeout` add up to exactly one second, or to less than
 *   zero with a negative `timeout`.
 *
 * Threads: any number of threads at a time.
 *
 * @par Notes
 * The time-out bounds nothing: a thread whose signal never comes waits forever. Programs rely on it
 * as it is. For a bounded wait use g_thread_event_wait_for() of <groundwork/safe.h>.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void *wait_for(void *event) {
 *   g_thread_event_wait_timeout(event, 10); // does not return after 10 ms
 *   puts("woken");
 *   return NULL;
 * }
 *
 * GThreadEvent *event = g_thread_event_new();
 * if (event == NULL) return 1;
 * GThread *waiter = g_thread_create(wait_for, event, "waiter");
 * g_delay(500);
 * g_thread_event_signal(event);
 * g_thread_wait(waiter); // prints: woken
 * g_thread_event_free(event);
 * @endcode
 */
G_API int g_thread_event_wait_timeout(GThreadEvent* event, int timeout);

/**
 * Wakes one thread that waits for an event, if there is one.
 *
 * @param event  from g_thread_event_new(); not null.
 * @return 0; -1 when `event` is null.
 *
 * @par Errors
 * - ``'event != NULL' FAILED.``: critical; `event` is null.
 * - ``can't signal cond - %s``: warning, with the text of `errno`; the system refuses.
 *
 * Threads: any thread, until the event is freed.
 *
 * Standard: pthread_cond_signal(), POSIX.
 *
 * @par Notes
 * A signal that nobody waits for is lost for g_thread_event_wait().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThreadEvent *event = g_thread_event_new();
 * if (event == NULL) return 1;
 * printf("%d\n", g_thread_event_signal(event)); // prints: 0
 * g_thread_event_free(event);
 * @endcode
 */
G_API int g_thread_event_signal(GThreadEvent* event);

/**
 * Wakes all threads that wait for an event.
 *
 * @param event  from g_thread_event_new(); not null.
 * @return 0; -1 when `event` is null.
 *
 * @par Errors
 * - ``'event != NULL' FAILED.``: critical; `event` is null.
 * - ``can't signal cond broadcast - %s``: warning, with the text of `errno`; the system refuses.
 *
 * Threads: any thread, until the event is freed.
 *
 * Standard: pthread_cond_broadcast(), POSIX.
 *
 * @par Notes
 * A broadcast that nobody waits for is lost for g_thread_event_wait().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GThreadEvent *event = g_thread_event_new();
 * if (event == NULL) return 1;
 * printf("%d\n", g_thread_event_broadcast(event)); // prints: 0
 * g_thread_event_free(event);
 * @endcode
 */
G_API int g_thread_event_broadcast(GThreadEvent* event);

/** @} */

/** @} */

#ifdef __cplusplus
}
#endif

#endif
