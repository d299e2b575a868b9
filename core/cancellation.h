// Code where a thread may be cancelled, and code where it must not. Cancellation runs no
// destructors.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_CANCELLATION_H
#define GROUNDWORK_CORE_CANCELLATION_H

#include <pthread.h>

// For a function that cancellation may leave, with or without a cleanup handler in it: the
// address sanitizer would otherwise keep guarding the locals of the frames that are gone.
#define LEFT_BY_CANCELLATION [[gnu::no_sanitize_address]]

namespace groundwork {

// Holds off cancellation of the calling thread until the end of the scope: for code that
// must not be interrupted and calls no user function.
class CancellationHeld {
 public:
  CancellationHeld() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_state_); }
  ~CancellationHeld() { pthread_setcancelstate(former_state_, nullptr); }
  CancellationHeld(const CancellationHeld&) = delete;
  CancellationHeld& operator=(const CancellationHeld&) = delete;

 private:
  int former_state_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace groundwork

#endif
