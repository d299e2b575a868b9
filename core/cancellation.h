// Code that a cancelled thread may leave, and code that it must not. No destructor runs
// when a thread is cancelled.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_CANCELLATION_H
#define GROUNDWORK_CORE_CANCELLATION_H

#include <pthread.h>

// For a function that a cancelled thread may leave from inside, or pass through with a
// cleanup handler: the address sanitizer would go on guarding the locals of the frames
// left.
#define LEFT_BY_CANCELLATION [[gnu::no_sanitize_address]]

namespace groundwork {

// Puts off the calling thread's cancellation to the end of the scope: for code that must
// not be left half done and runs no user's function.
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
