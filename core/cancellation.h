// Code where a thread may be cancelled, and code where it must not. Cancellation runs no
// destructors.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_CANCELLATION_H
#define GROUNDWORK_CORE_CANCELLATION_H

#include <pthread.h>

#include "core/built_for.h"

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

// Both of these serve with_cleanup(). Not inlined: the handler's setjmp() would affect the
// registers of their caller.
void call_with_cleanup(void (*work)(void*), void* argument, void (*clean_up)(void*),
                       void* what);
template <typename Work>
[[gnu::noinline]] LEFT_BY_CANCELLATION void call_with_cleanup(Work& work,
                                                              void (*clean_up)(void*),
                                                              void* what) {
  pthread_cleanup_push(clean_up, what);
  work();
  pthread_cleanup_pop(0);
}

// Calls work(), and clean_up(what) if the thread ends within it: by cancellation, or by
// pthread_exit() in a user function.
template <typename Work>
LEFT_BY_CANCELLATION void with_cleanup(void (*clean_up)(void*), void* what, Work work) {
  if constexpr (kForSpeed) {
    call_with_cleanup(work, clean_up, what);
  } else {
    const auto call = [](void* argument) { (*static_cast<Work*>(argument))(); };
    call_with_cleanup(call, &work, clean_up, what);
  }
}

// free() as a cleanup handler: the address of the C library's would take a relocation.
[[gnu::visibility("hidden")]] void free_block(void* block);

}  // namespace groundwork

#endif
