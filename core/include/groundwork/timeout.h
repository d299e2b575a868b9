/* SPDX-License-Identifier: MIT */
/**
 * @defgroup timeout Timeouts
 * @ingroup threads
 *
 * Timeouts: one function called periodically on a thread of its own.
 *
 * Calls come at a fixed rate: each period is measured, by the wall clock, from the start of
 * the call. A call longer than the interval is followed by the next at once. A clock set
 * back during a call lengthens the wait after it by as much.
 *
 * A timeout belongs to whoever started it, until g_timeout_free() or until its function
 * returns 0.
 *
 * Threads: timeouts may be started and ended on any thread, each ended once. The function runs
 * on the timeout's own thread: what it shares with others needs a lock.
 *
 * A child of fork() has none of the timeouts' threads: inherited timeouts make no calls there,
 * and g_timeout_free() only frees them. A child that a timeout's function forks is that timeout's
 * thread and goes on calling it. The handlers of pthread_atfork() must not use timeouts.
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
 * g_delay(500); // the first call comes at once
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
 * Starts a timeout. Its first call comes at once.
 *
 * @warning Once `func` has returned 0 the timeout is gone, which may be before this call returns.
 * When the system has no thread left, the result is a timeout whose function is never called.
 *
 * @param name      for the reader of the source; may be null.
 * @param interval  period in milliseconds; greater than 0.
 * @param func      not null.
 * @param data      passed to `func`; not owned.
 * @return the timeout, for g_timeout_free(). Null when an argument is bad (logged as
 *         critical) or memory is exhausted ("can't allocate space for a new timeout.", a
 *         warning).
 */
G_API GTimeout* g_timeout_new(const char* name, int interval, GTimeoutFunc func,
                              void* data);

/**
 * Ends a timeout: cancels its thread (POSIX, deferred), waits for it and frees all. The
 * function may be stopped at any cancellation point in it, so let it hold nothing there that
 * must be given back, or push a cleanup handler.
 *
 * Calling this while the function is about to return 0 is safe; later is not, as another
 * timeout may have got the same address. In the timeout's own function it is better to
 * return 0; a call there takes effect when the function returns.
 *
 * @param timeout  not null (else logged).
 */
G_API void g_timeout_free(GTimeout* timeout);

/**
 * Sets the scheduling of the timeout's thread, as g_thread_set_priority().
 *
 * @warning When `timeout` is null the check is logged and the result of g_log() is returned, which
 * may look like success.
 *
 * @param timeout   not null, active.
 * @param priority  0 lowest to 6 highest.
 * @return as g_thread_set_priority(), or that of g_log() when `timeout` is null.
 */
G_API int g_timeout_set_priority(GTimeout* timeout, int priority);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
