// The definition of GThreadEvent.
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
  bool freed;        // the last waiter destroys the event

  // Waits with a ticket use another condition variable, since one signal ends all of them.
  bool has_ticket_cond;     // initialised by the first such wait
  uint32_t signals;         // number of signals and broadcasts, modulo 2^32
  unsigned ticket_waiters;  // waiters on ticket_cond
  pthread_cond_t ticket_cond;
};
static_assert(offsetof(GThreadEvent, cond) == 0 &&
              offsetof(GThreadEvent, mutex) == sizeof(pthread_cond_t));

namespace groundwork {

// Ends a wait: removes one waiter and unlocks the mutex. Also the cleanup handler of a
// cancelled waiter, which holds the mutex again.
void leave_event(void* event);

}  // namespace groundwork

#endif
