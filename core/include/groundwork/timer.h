/* SPDX-License-Identifier: MIT */
/**
 * @defgroup timer Timer service
 * @ingroup threads
 *
 * The timer service: periodic callbacks on one thread, a millisecond clock, a sleep.
 *
 * The thread of the service wakes every 10 ms and calls each callback whose interval has elapsed,
 * one at a time. The resolution is 10 ms: intervals are rounded up to multiples of it, and a timer
 * may fire up to 10 ms early. A slow callback delays all others; periods that are missed because of
 * it are dropped.
 *
 * @warning A callback that adds or removes timers ends that scan of the list: the timers after its
 * own wait for the next scan. Where a callback does so in each scan, they are never called. When
 * the system has no thread left, g_timer_init() and g_timer_enable() still return 0, and no timer
 * fires.
 *
 * Signal handlers may run on the service's thread, which has the signal mask of the thread that
 * started it. A callback must return: do not leave it by an exception or longjmp().
 *
 * Diagnostics go to standard output, not to the log: "g_timer:<line> pid=<pid> ...".
 *
 * A child of fork() has the timers but not the thread: the service is stopped there, and
 * g_timer_enable() or g_timer_init() starts it again with the timers that were inherited. So a
 * program that calls daemon() after the set-up must enable the service once more. A child that a
 * callback forks is itself the service's thread and goes on with the timers when the callback
 * returns. The handlers of pthread_atfork() must not use timers. After vfork() or _Fork() a child
 * must use neither timers nor timeouts.
 *
 * Threads: timers may be added and removed on any thread, also in callbacks, while the service is
 * set up. g_timer_init(), g_timer_enable() and g_timer_cleanup() belong to one thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static uint32_t count_down(uint32_t interval, void *param) {
 *   int *left = param;
 *
 *   printf("%d\n", *left);
 *   return --*left > 0 ? interval : 0; // 0 ends the timer
 * }
 *
 * int left = 3; // the timer's alone until g_timer_cleanup()
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * if (g_add_timer(20, count_down, &left) == NULL) return 1;
 * g_delay(1000);
 * // prints: 3
 * // prints: 2
 * // prints: 1
 * g_timer_cleanup();
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_TIMER_H
#define GROUNDWORK_TIMER_H

#include <stdint.h>

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A registered timer, owned by the service. Its address is the timer's id. */
typedef struct GTimerEntry GTimerEntry;

/**
 * Called on the service's thread, without a lock: it may add and remove timers, itself included.
 *
 * @param interval  the present interval of the timer in milliseconds.
 * @param param     as given at registration.
 * @return the next interval in milliseconds, rounded up to a multiple of 10; 0 removes the timer,
 *         unless its interval is 0 already.
 */
typedef uint32_t (*GTimerCallback)(uint32_t interval, void* param);

/** The process id as the service's thread sees it while it runs, else 0. */
G_API extern int g_timer_pid;

/** Reserved; the library neither reads nor writes it. */
G_API extern uint32_t g_alarm_interval;

/** Reserved; the library neither reads nor writes it. */
G_API extern GTimerCallback g_alarm_callback;

/**
 * Starts the timer service.
 *
 * @return 0; -1 when the service's thread exists already, or when memory is exhausted.
 *
 * @par Errors
 * - ``g_timer:%d pid=%d *ERR* g_timer_init fail: thread runnin``: on standard output, with source
 *   line and process id; the thread exists already.
 * - ``'mutex != NULL' FAILED.``: critical; the thread starts before the lock of the timer list
 *   exists, so its first scan may report this. It does no harm.
 *
 * Threads: one thread for g_timer_init(), g_timer_enable() and g_timer_cleanup().
 *
 * @par Notes
 * - Call g_start_ticks() first. Otherwise the first reading of the clock counts as a step of it,
 *   and a timer that is added then may fire immediately.
 * - When the system has no thread left the result is still 0, and nothing ever fires. Wait for the
 *   first call where that matters.
 * - The service wakes every 10 ms, whether or not a timer is due. g_timer_save_power() of
 *   <groundwork/safe.h> lets it sleep.
 * - The thread inherits the signal mask of the caller, and signal handlers may run on it: block
 *   signals before this call to keep them away.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static uint32_t tick(uint32_t interval, void *param) {
 *   (void)interval;
 *   puts(param);
 *   return 0; // once
 * }
 *
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * g_add_timer(20, tick, "tick"); // prints: tick
 * g_delay(1000);
 * g_timer_cleanup();
 * @endcode
 */
G_API int g_timer_init(void);

/**
 * Stops the timer service and frees every timer. The service may be started again. In a child of
 * fork() the call frees the timers that were inherited.
 *
 * @par Errors
 * Lines on standard output, with source line and process id:
 * - ``g_timer:%d pid=%d g_timer_enable(0)``: the service is being stopped.
 * - ``g_timer:%d pid=%d timer thead=%d quit``: its thread has ended; the last number is the process
 *   id that it saw.
 * - ``g_timer:%d pid=%d g_timer_enable: not running``: there was no thread.
 * - ``'mutex != NULL' FAILED.``: critical, several times; g_timer_init() was not called.
 *
 * Threads: one thread for g_timer_init(), g_timer_enable() and g_timer_cleanup(). The call waits
 * until a callback that is running has returned, except when the callback itself makes the call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * g_timer_cleanup();
 * printf("%d\n", g_timer_pid); // prints: 0
 * @endcode
 */
G_API void g_timer_cleanup(void);

/**
 * Stops or resumes the thread of the timer service. Timers are kept.
 *
 * @param on  0 waits until the thread has finished its scan and its sleep; anything else starts the
 *            thread if there is none.
 * @return 0; -1 when memory for the thread is exhausted.
 *
 * @par Errors
 * Lines on standard output, with source line and process id:
 * - ``g_timer:%d pid=%d g_timer_enable(0)``: the service is being stopped.
 * - ``g_timer:%d pid=%d timer thead=%d quit``: its thread has ended; the last number is the process
 *   id that it saw.
 * - ``g_timer:%d pid=%d g_timer_enable: not running``: there was no thread to stop.
 *
 * Threads: one thread for g_timer_init(), g_timer_enable() and g_timer_cleanup(), or a callback,
 * which may stop the service and does not wait for itself.
 *
 * @par Notes
 * When the system has no thread left the result is still 0, and nothing fires.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * g_timer_enable(0); // no timer fires from here
 * g_timer_enable(1); // to here
 * g_timer_cleanup();
 * @endcode
 */
G_API int g_timer_enable(int on);

/**
 * Registers a timer. It fires for the first time one interval from now.
 *
 * @param interval  milliseconds, rounded up to a multiple of 10; below 1 it becomes 0, and the
 *                  timer never fires.
 * @param callback  called on the service's thread until it returns 0; null never fires.
 * @param param     passed to `callback`; stays the caller's; may be null.
 * @return the id of the timer, which the service owns; invalid once the callback has returned 0 or
 *         the timer was removed. Null before g_timer_init(), or, with nothing logged, when memory
 *         is exhausted.
 *
 * @par Errors
 * Lines on standard output, with source line and process id:
 * - ``g_timer:%d pid=%d you must call g_init(g_init_timer) first``: the service is not set up; the
 *   result is null.
 * - ``g_timer:%d pid=%d **WARNING** g_add_timer interval=%d < %d``: the interval is below 10; the
 *   timer is registered all the same.
 * - ``g_timer:%d pid=%d WARNING timer is not running``: the service is stopped; the timer is
 *   registered all the same.
 *
 * Threads: any thread, also in a callback, while the service is set up.
 *
 * @par Notes
 * - Call g_start_ticks() before g_timer_init(). Otherwise the first reading of the clock counts as
 *   a step, the next one may be up to 10 ms lower, and a timer that is added in between fires
 *   immediately. A wall clock that is set back by less than 30 seconds does the same to timers
 *   whose period began after the new time.
 * - A timer may fire up to 10 ms early, and periods that are missed are dropped: counting calls
 *   does not measure time. Use g_monotonic_ms() of <groundwork/safe.h>.
 * - A call in a callback ends that scan of the list: the timers after it wait for the next scan, 10
 *   ms later, and are never called if a callback adds or removes timers in each scan.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static uint32_t tick(uint32_t interval, void *param) {
 *   puts(param);
 *   (void)interval;
 *   return 60000; // again in a minute
 * }
 *
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * if (g_add_timer(20, tick, "tick") == NULL) return 1; // prints: tick
 * g_delay(1000);
 * g_timer_cleanup();
 * @endcode
 */
G_API GTimerEntry* g_add_timer(int interval, GTimerCallback callback, void* param);

/**
 * Registers a timer. It fires for the first time one interval from now. The function does the same
 * as g_add_timer().
 *
 * @param interval  milliseconds, rounded up to a multiple of 10; below 1 it becomes 0, and the
 *                  timer never fires.
 * @param callback  called on the service's thread until it returns 0; null never fires.
 * @param param     passed to `callback`; stays the caller's; may be null.
 * @return the id of the timer, which the service owns; invalid once the callback has returned 0 or
 *         the timer was removed. Null before g_timer_init(), or, with nothing logged, when memory
 *         is exhausted.
 *
 * @par Errors
 * Lines on standard output, with source line and process id:
 * - ``g_timer:%d pid=%d you must call g_init(g_init_timer) first``: the service is not set up; the
 *   result is null.
 * - ``g_timer:%d pid=%d **WARNING** g_add_timer interval=%d < %d``: the interval is below 10; the
 *   timer is registered all the same.
 * - ``g_timer:%d pid=%d WARNING timer is not running``: the service is stopped; the timer is
 *   registered all the same.
 *
 * Threads: any thread, also in a callback, while the service is set up.
 *
 * @par Notes
 * - Call g_start_ticks() before g_timer_init(). Otherwise the first reading of the clock counts as
 *   a step, the next one may be up to 10 ms lower, and a timer that is added in between fires
 *   immediately. A wall clock that is set back by less than 30 seconds does the same to timers
 *   whose period began after the new time.
 * - A timer may fire up to 10 ms early, and periods that are missed are dropped: counting calls
 *   does not measure time. Use g_monotonic_ms() of <groundwork/safe.h>.
 * - A call in a callback ends that scan of the list: the timers after it wait for the next scan, 10
 *   ms later, and are never called if a callback adds or removes timers in each scan.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static uint32_t tick(uint32_t interval, void *param) {
 *   (void)interval;
 *   puts(param);
 *   return 0; // once
 * }
 *
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * if (g_add_timer_ex(20, tick, "tick") == NULL) return 1; // prints: tick
 * g_delay(1000);
 * g_timer_cleanup();
 * @endcode
 */
G_API GTimerEntry* g_add_timer_ex(int interval, GTimerCallback callback, void* param);

/**
 * Removes a timer.
 *
 * @param id  from g_add_timer(); it is only compared, so any value is allowed.
 * @return 1; 0 when there is no such timer.
 *
 * @par Errors
 * - ``g_timer:%d pid=%d g_remove_timer: *ERR* id=%p not found``: on standard output, with source
 *   line, process id and `id`; there is no such timer.
 * - ``'mutex != NULL' FAILED.``: critical, twice; g_timer_init() was not called.
 *
 * Threads: any thread, also in a callback. On another thread than the service's, the callback of
 * the timer may be running during the call and end after it.
 *
 * @par Notes
 * - The id of a removed timer may be given to a new one.
 * - A call in a callback ends that scan of the list: the timers after it wait for the next scan, 10
 *   ms later.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static uint32_t tick(uint32_t interval, void *param) {
 *   puts(param);
 *   return interval;
 * }
 *
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * GTimerEntry *id = g_add_timer(60000, tick, "a minute");
 * printf("%d\n", g_remove_timer(id)); // prints: 1
 * g_timer_cleanup();
 * @endcode
 */
G_API int g_remove_timer(GTimerEntry* id);

/**
 * Replaces ALL timers, also those made by g_add_timer(), by one.
 *
 * @param interval  milliseconds, rounded up to a multiple of 10; 0 only removes all timers.
 * @param callback  called on the service's thread with the interval and, as `param`, its own
 *                  address, until it returns 0; null never fires.
 * @return 0; -1, with nothing logged, when memory is exhausted (the previous timers are gone all
 *         the same).
 *
 * @par Errors
 * - ``'mutex != NULL' FAILED.``: critical, twice; g_timer_init() was not called. The work is done
 *   all the same.
 *
 * Threads: any thread, also in a callback.
 *
 * @par Notes
 * - Timers of other parts of the program stop, too. g_add_timer() leaves them alone.
 * - Call g_start_ticks() before g_timer_init(). Otherwise the first reading of the clock counts as
 *   a step, the next one may be up to 10 ms lower, and a timer that is added in between fires
 *   immediately. A wall clock that is set back by less than 30 seconds does the same to timers
 *   whose period began after the new time.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static uint32_t tick(uint32_t interval, void *param) {
 *   (void)interval, (void)param;
 *   puts("tick");
 *   return 0; // once
 * }
 *
 * g_start_ticks();
 * if (g_timer_init() != 0) return 1;
 * g_set_timer(20, tick); // prints: tick
 * g_delay(1000);
 * g_timer_cleanup();
 * @endcode
 */
G_API int g_set_timer(uint32_t interval, GTimerCallback callback);

/**
 * Sets the clock of ticks to 0. Call it before g_timer_init().
 *
 * @return what gettimeofday() returned: 0.
 *
 * Threads: call it at start-up, before other threads read the ticks or timers run.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_start_ticks();
 * g_get_ticks(); // the first reading counts as a step of the clock
 * g_delay(20);
 * if (g_get_ticks() >= 19) puts("ticking"); // prints: ticking
 * @endcode
 */
G_API int g_start_ticks(void);

/**
 * Reads the clock of ticks: milliseconds since g_start_ticks(), or since the epoch without it,
 * modulo 2^32.
 *
 * A difference of more than 30 seconds from the last reading, in either direction, counts as a step
 * of the wall clock: the reading is then the last one plus 10, and later ones continue from about
 * the last one. The first reading of a process that did not call g_start_ticks() is such a step: it
 * is 10.
 *
 * @return the ticks in milliseconds.
 *
 * Threads: any thread. Two that notice a step at the same time may each act on it.
 *
 * @par Notes
 * - Steps of the wall clock of less than 30 seconds, such as NTP makes, move the ticks.
 * - A process that does not read the ticks for half a minute loses that time. g_monotonic_ms() of
 *   <groundwork/safe.h> has neither problem.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_start_ticks();
 * uint32_t begin = g_get_ticks();
 * g_delay(30);
 * uint32_t end = g_get_ticks();
 * if (end - begin >= 19) puts("slept"); // prints: slept
 * @endcode
 */
G_API uint32_t g_get_ticks(void);

/**
 * Sleeps for some milliseconds. A signal does not end the sleep. A cancellation point.
 *
 * @param ms  milliseconds; a negative value returns immediately.
 *
 * Threads: any thread.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * g_delay(10);
 * puts("ten milliseconds later"); // prints: ten milliseconds later
 * @endcode
 */
G_API void g_delay(int ms);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
