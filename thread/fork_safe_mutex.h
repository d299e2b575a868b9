// A process-wide mutex that a child of fork() never finds locked.
//
// fork() copies a mutex as it is, but only the thread that calls it: a mutex that another
// thread held would stay locked in the child forever. So the forking thread locks it before
// the fork, and unlocks it on both sides.
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
  std::atomic<uintptr_t> forking_thread{0};  // 0: none
  unsigned forks = 0;                        // forks in progress in that thread
};

// Registers the handlers of a mutex with pthread_atfork(). Call it without the mutex,
// before that is locked for the first time; later calls cost one load. If memory for the
// registration is exhausted, the mutex works without, and the next call tries again.
//
// No lock makes the registration unique: a child forked meanwhile would find that lock
// held. Registering the handlers twice does no harm.
inline void survive_forks(ForkSafeMutex& lock, void (*before)(), void (*in_parent)(),
                          void (*in_child)()) {
  if (lock.is_registered.load(std::memory_order_relaxed)) return;
  if (pthread_atfork(before, in_parent, in_child) == 0) {
    lock.is_registered.store(true, std::memory_order_relaxed);
  }
}

// For the handlers: begin_fork() before fork(), end_fork() after it, on both sides.
void begin_fork(ForkSafeMutex& lock);
void end_fork(ForkSafeMutex& lock);

// For the child, before end_fork(): returns whether the mutex is held for this fork, so
// that what it guards may be updated.
bool is_held_for_fork(const ForkSafeMutex& lock);

}  // namespace groundwork

#endif
