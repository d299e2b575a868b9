/* SPDX-License-Identifier: MIT */
/**
 * @defgroup timeout Timeouts
 * @ingroup threads
 *
 * Timeouts: one function called periodically on a thread of its own.
 *
 * Calls come at a fixed rate: each period is measured, by the wall clock, from the start of the
 * call. A call that takes longer than the interval is followed by the next one immediately. A clock
 * that is set back during a call lengthens the wait after it by as much.
 *
 * A timeout belongs to whoever started it, until g_timeout_free() or until its function returns 0.
 *
 * A child of fork() has none of the timeouts' threads: inherited timeouts make no calls there, and
 * g_timeout_free() only frees them. A child that a timeout's function forks is that timeout's
 * thread and goes on calling it. The handlers of pthread_atfork() must not use timeouts.
 *
 * Threads: timeouts may be started and ended on any thread, each ended once. The function runs on
 * the timeout's own thread: what it shares with others needs a lock.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int beat(void *data) {
 *   puts(data);
 *   return 1; // 0 would end the timeout and free it
 * }
 *
 * GTimeout *heart = g_timeout_new("heart", 60000, beat, "beat"); // every minute
 * if (heart == NULL) return 1;
 * g_delay(500); // the first call comes immediately
 * // prints: beat
 * g_timeout_free(heart);
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_TIMEOUT_H
#define GROUNDWORK_TIMEOUT_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** An active timeout. */
typedef struct GTimeout GTimeout;

/**
 * The function of a timeout, called on the timeout's thread.
 *
 * @param data  as given to g_timeout_new().
 * @return other than 0 to be called again; 0 to end, which frees the timeout.
 */
typedef int (*GTimeoutFunc)(void* data);

/**
 * Starts a timeout. Its first call comes immediately.
 *
 * @param name      for the reader of the source; not used, may be null.
 * @param interval  period in milliseconds, greater than 0.
 * @param func      called on the timeout's thread until it returns 0; not null.
 * @param data      passed to `func`; stays the caller's; may be null.
 * @return the timeout, owned by the caller and released with g_timeout_free(), until `func` returns
 *         0; null when an argument is bad, or when memory is exhausted.
 *
 * @par Errors
 * - ``'interval > 0' FAILED.``: critical; `interval` is 0 or negative.
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 * - ``can't allocate space for a new timeout.``: warning; memory is exhausted.
 *
 * Threads: any thread. The timeout's thread inherits the signal mask of the caller.
 *
 * @par Notes
 * - Once `func` has returned 0 the timeout is gone and its handle dangles, which may be before this
 *   call returns.
 * - When the system has no thread left, the result is a timeout whose function is never called.
 *   Wait for the first call where that matters.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int beat(void *data) {
 *   puts(data);
 *   return 0; // ends the timeout
 * }
 *
 * if (g_timeout_new("heart", 1000, beat, "beat") == NULL) return 1;
 * g_delay(500); // prints: beat
 * @endcode
 */
G_API GTimeout* g_timeout_new(const char* name, int interval, GTimeoutFunc func,
                              void* data);

/**
 * Ends a timeout: cancels its thread (deferred), waits for it and frees the timeout.
 *
 * In the timeout's own function it is better to return 0; a call there takes effect when the
 * function returns.
 *
 * @param timeout  from g_timeout_new(), invalid afterwards; null is logged.
 *
 * @par Errors
 * - ``'timeout != NULL' FAILED.``: critical; `timeout` is null.
 *
 * Threads: any thread, once. A call while the function is about to return 0 is safe; a later one is
 * not, because another timeout may have been given the same address. The calling thread is not
 * cancelled during the call.
 *
 * @par Notes
 * The function may be stopped at any cancellation point in it, and what it has locked or allocated
 * there stays so. Let it have no cancellation points, or push a cleanup handler.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int beat(void *data) {
 *   (void)data;
 *   return 1; // again
 * }
 *
 * GTimeout *heart = g_timeout_new("heart", 1000, beat, NULL);
 * if (heart == NULL) return 1;
 * g_timeout_free(heart); // waits until the function has stopped
 * @endcode
 */
G_API void g_timeout_free(GTimeout* timeout);

/**
 * Sets the scheduling class and the priority of a timeout's thread.
 *
 * | priority | class       | POSIX priority on Linux |
 * |----------|-------------|-------------------------|
 * | 0        | SCHED_OTHER | 0                       |
 * | 1 to 5   | SCHED_RR    | 18, 34, 50, 66, 82      |
 * | 6        | SCHED_FIFO  | 99                      |
 *
 * @param timeout   from g_timeout_new() and active; not null.
 * @param priority  0 lowest to 6 highest; 1 to 6 need real-time privileges.
 * @return 0; -1 when the priority is out of range or the system refuses. When `timeout` is null,
 *         what g_log() returned.
 *
 * @par Errors
 * - ``'timeout != NULL' FAILED.``: critical; `timeout` is null.
 * - ``unknown priority %d``: warning, with the priority; it is not 0 to 6.
 * - ``can't set priority to %d. - %s.``: warning, with the priority and the text of `errno`, which
 *   may be that of an earlier failure; the system refuses, usually for lack of privileges.
 *
 * Threads: any thread, while the timeout is active.
 *
 * @par Notes
 * When `timeout` is null the result is that of the log handler, which may look like success.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int beat(void *data) {
 *   (void)data;
 *   return 1; // again
 * }
 *
 * GTimeout *heart = g_timeout_new("heart", 1000, beat, NULL);
 * if (heart == NULL) return 1;
 * printf("%d\n", g_timeout_set_priority(heart, 0)); // prints: 0
 * g_timeout_free(heart);
 * @endcode
 */
G_API int g_timeout_set_priority(GTimeout* timeout, int priority);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
