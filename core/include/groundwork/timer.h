/* SPDX-License-Identifier: MIT */
/**
 * @defgroup timer Timer service
 * @ingroup threads
 *
 * The timer service: periodic callbacks on one thread, a millisecond clock, a sleep.
 *
 * The service's thread wakes every 10 ms and calls each callback whose interval has
 * elapsed, one at a time. Resolution is 10 ms: intervals are rounded up to multiples of
 * it, and a timer may fire up to 10 ms early. A slow callback delays all others; periods
 * missed meanwhile are dropped.
 *
 * @warning A callback that adds or removes timers ends that scan of the list: the timers after its
 * own wait for the next one. Where a callback does so in each scan, they are never called. When
 * the system has no thread left, g_timer_init() and g_timer_enable() still return 0, and no timer
 * fires.
 *
 * Signal handlers may run on the service's thread, which has the signal mask of the thread that
 * started it. A callback must return: not by an exception or longjmp().
 *
 * Diagnostics go to standard output, not to the log: "g_timer:<line> pid=<pid> ...".
 *
 * Threads: timers may be added and removed on any thread, also in callbacks, while the
 * service is set up. g_timer_init(), g_timer_enable() and g_timer_cleanup() belong to one
 * thread.
 *
 * A child of fork() has the timers but not the thread: there the service is stopped, and
 * g_timer_enable() or g_timer_init() starts it again with the timers that were inherited. So a
 * program that calls daemon() after setting up must enable the service once more. A child that a
 * callback forks is the service's thread itself and goes on with the timers when the callback
 * returns. The handlers of pthread_atfork() must not use timers. After vfork() or _Fork() a child
 * must use neither timers nor timeouts.
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
 * Called on the service's thread, with no lock held: it may add and remove timers, itself
 * included.
 *
 * @param interval  the timer's present interval in milliseconds.
 * @param param     as given at registration.
 * @return the next interval in milliseconds, rounded up to a multiple of 10; 0 removes the
 *         timer, unless its interval is 0 already.
 */
typedef uint32_t (*GTimerCallback)(uint32_t interval, void* param);

/** The process id as the service's thread sees it while it runs, else 0. */
G_API extern int g_timer_pid;

/** Reserved; the library neither reads nor writes it. */
G_API extern uint32_t g_alarm_interval;

/** Reserved; the library neither reads nor writes it. */
G_API extern GTimerCallback g_alarm_callback;

/**
 * Starts the timer service. Its thread starts before the lock of the timer list exists, so its
 * first pass may log a failed check "mutex != NULL"; that is harmless.
 *
 * @return 0; -1 when the service's thread exists already (printed), or when memory is
 *         exhausted.
 */
G_API int g_timer_init(void);

/** Stops the timer service and frees every timer. It may be started again. In a child of fork()
 *  it frees the timers that were inherited. */
G_API void g_timer_cleanup(void);

/**
 * Stops or resumes the timer service's thread. Timers are kept.
 *
 * @param on  0 waits until the thread has finished its pass and its sleep (printed, also
 *            when there was no thread); anything else starts the thread if there is none.
 * @return 0; -1 when memory for the thread is exhausted.
 */
G_API int g_timer_enable(int on);

/**
 * Registers a timer. It fires for the first time one interval from now.
 *
 * @param interval  milliseconds, rounded up to a multiple of 10. Below 10 a warning is
 *                  printed; a timer whose interval becomes 0 never fires.
 * @param callback  called as long as it does not return 0. Null never fires.
 * @param param     passed to `callback`; not owned.
 * @return the timer's id; null before g_timer_init() (printed) or when memory is exhausted.
 *         The id is invalid once the callback has returned 0.
 */
G_API GTimerEntry* g_add_timer(int interval, GTimerCallback callback, void* param);

/** Registers a timer: the same as g_add_timer().
 *  @param interval as there. @param callback as there. @param param as there.
 *  @return as there. */
G_API GTimerEntry* g_add_timer_ex(int interval, GTimerCallback callback, void* param);

/**
 * Removes a timer. On another thread than the service's, its callback may just be running.
 *
 * @param id  any value; it is only compared.
 * @return 1; 0 when there is no such timer (printed).
 */
G_API int g_remove_timer(GTimerEntry* id);

/**
 * Replaces ALL timers, also those made by g_add_timer(), by one.
 *
 * Before g_timer_init() two failed checks "mutex != NULL" are logged and the work is done.
 *
 * @param interval  milliseconds, rounded up to a multiple of 10; 0 only removes all timers.
 * @param callback  gets the interval and, as `param`, its own address.
 * @return 0; -1 when memory is exhausted (the former timers are gone all the same).
 */
G_API int g_set_timer(uint32_t interval, GTimerCallback callback);

/** Sets the clock of ticks to 0. @return what gettimeofday() returned. */
G_API int g_start_ticks(void);

/**
 * Reads the clock: milliseconds since g_start_ticks(), or since the epoch without it, modulo
 * 2^32.
 *
 * A difference of more than 30 seconds to the last reading, either way, is taken for a step
 * of the wall clock: the reading is then the last one plus 10, and later ones go on from
 * about the last one. So is the first reading of a process that did not call
 * g_start_ticks(): it is 10. Where a process may not read the ticks for half a minute they
 * lose that time.
 *
 * @return the ticks.
 *
 * Threads: any; two that notice a step at once may each take it for theirs.
 */
G_API uint32_t g_get_ticks(void);

/**
 * Sleeps for some milliseconds, on through signals. A cancellation point.
 *
 * @param ms  milliseconds; a negative value returns at once.
 */
G_API void g_delay(int ms);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
