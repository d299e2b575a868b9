// A process-wide mutex that a child of fork() never finds locked.
//
// fork() copies a mutex as it is, but of the threads only the one that calls it: a mutex
// that another thread held would stay locked in the child for ever. So the forking thread
// takes it first, and gives it back on both sides.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_FORK_SAFE_MUTEX_H
#define GROUNDWORK_THREAD_FORK_SAFE_MUTEX_H

#include <atomic>
#include <cstdint>

#include <pthread.h>

#include "thread/mutex_lock.h"

namespace groundwork {

struct ForkSafeMutex {
  GMutex mutex = {PTHREAD_MUTEX_INITIALIZER};
  std::atomic<bool> is_registered{false};
  std::atomic<uintptr_t> forking_thread{0};  // 0 for none
  unsigned forks = 0;                        // begun by that thread
};

// Registers the handlers of a mutex with pthread_atfork(). To be called without the mutex
// before it is locked first; later calls cost one load. Where memory for the registration
// is exhausted the mutex works without, and the next call tries again.
//
// No lock makes the registration unique: a child forked in the middle would find that one
// locked. Handlers that are registered twice do no harm.
inline void survive_forks(ForkSafeMutex& lock, void (*before)(), void (*in_parent)(),
                          void (*in_child)()) {
  if (lock.is_registered.load(std::memory_order_relaxed)) return;
  if (pthread_atfork(before, in_parent, in_child) == 0) {
    lock.is_registered.store(true, std::memory_order_relaxed);
  }
}

// What the handlers do: the first one before fork(), the second one after it, on both
// sides.
void begin_fork(ForkSafeMutex& lock);
void end_fork(ForkSafeMutex& lock);

// In the child, before end_fork(): whether the mutex is held for this fork, so that what it
// guards may be brought up to date.
bool is_held_for_fork(const ForkSafeMutex& lock);

}  // namespace groundwork

#endif
