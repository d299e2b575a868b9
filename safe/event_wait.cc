// Waits for an event that lose no signal and end in time.
//
// A ticket is the count of signals at some moment, and a wait ends when the count is
// another one. So it does not matter whether the signal comes before the wait or during it.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>

#include <pthread.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "safe/failure.h"
#include "safe/monotonic_wait.h"
#include "thread/event.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_thread";

void leave_ticket_wait(void* waited_for) {
  --static_cast<GThreadEvent*>(waited_for)->ticket_waiters;
  leave_event(waited_for);
}

// True if the event was signalled after the ticket, or is being freed. The mutex is held.
bool is_over(const GThreadEvent* event, uint32_t ticket) {
  return event->signals != ticket || event->freed;
}

// The event's mutex is held. Returns 0 for a signal, otherwise an error number.
LEFT_BY_CANCELLATION int wait_until_over(GThreadEvent* event, uint32_t ticket, int timeout,
                                         int64_t begin) {
  if (!event->has_ticket_cond) {
    if (const int error = init_monotonic(&event->ticket_cond)) return error;
    event->has_ticket_cond = true;
  }
  pthread_mutex_t* const mutex = &event->mutex->mutex;
  const timespec deadline = monotonic_time(begin + int64_t{timeout} * 1'000'000);
  int error = 0;
  while (error == 0 && !is_over(event, ticket)) {
    error = timeout < 0 ? pthread_cond_wait(&event->ticket_cond, mutex)
                        : pthread_cond_timedwait(&event->ticket_cond, mutex, &deadline);
  }
  return is_over(event, ticket) ? 0 : error;
}

// The event's mutex is held, and unlocked at the end. Not inlined, so that the immediate
// return stays small.
[[gnu::noinline]] LEFT_BY_CANCELLATION int wait_in_event(GThreadEvent* event,
                                                         uint32_t ticket, int timeout) {
  const int64_t begin = timeout > 0 ? monotonic_ns() : 0;
  int error = 0;
  ++event->waiters;
  ++event->ticket_waiters;
  with_cleanup(leave_ticket_wait, event,
               [&] { error = wait_until_over(event, ticket, timeout, begin); });
  leave_ticket_wait(event);
  if (error == 0) return 0;
  return error == ETIMEDOUT ? 1 : fail(error);
}

}  // namespace

extern "C" uint32_t g_thread_event_ticket(GThreadEvent* event) {
  CHECK_ARG(event != NULL, (fail(EINVAL), 0u));
  MutexLock lock(event->mutex);
  return event->signals;
}

extern "C" LEFT_BY_CANCELLATION int g_thread_event_wait_for(GThreadEvent* event,
                                                            uint32_t ticket, int timeout) {
  CHECK_ARG(event != NULL, fail(EINVAL));
  pthread_testcancel();  // even if there is nothing to wait for
  pthread_mutex_lock(&event->mutex->mutex);
  const bool is_signalled = is_over(event, ticket);
  if (!is_signalled && timeout != 0) return wait_in_event(event, ticket, timeout);
  pthread_mutex_unlock(&event->mutex->mutex);
  return is_signalled ? 0 : 1;
}
