// What is behind a GThreadEvent.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_EVENT_H
#define GROUNDWORK_THREAD_EVENT_H

#include <groundwork/thread.h>

#include <cstddef>
#include <cstdint>

#include <pthread.h>

struct GThreadEvent {
  pthread_cond_t cond;
  GMutex* mutex;     // guards the rest
  unsigned waiters;  // of every kind
  bool freed;        // the last waiter disposes of the event

  // Waits with a ticket, which have a condition of their own: one signal ends all of them.
  bool has_ticket_cond;     // made by the first such wait
  uint32_t signals;         // and broadcasts, modulo 2^32
  unsigned ticket_waiters;  // those that may be waiting for ticket_cond
  pthread_cond_t ticket_cond;
};
static_assert(offsetof(GThreadEvent, cond) == 0 &&
              offsetof(GThreadEvent, mutex) == sizeof(pthread_cond_t));

namespace groundwork {

// At the end of each wait, with the mutex held: one waiter less, and the mutex is given
// back. Also what a cancelled waiter does: the wait has given it the mutex again.
void leave_event(void* event);

}  // namespace groundwork

#endif
