// SPDX-License-Identifier: MIT

#include "thread/fork_safe_mutex.h"

using namespace groundwork;

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

// Identifies the calling thread.
uintptr_t own_id() {
  return (uintptr_t)pthread_self();  // a number here and a pointer there
}

}  // namespace

void groundwork::begin_fork(ForkSafeMutex& lock) {
  if (!is_held_for_fork(lock)) {
    pthread_mutex_lock(&lock.mutex.mutex);
    lock.forking_thread.store(own_id(), relaxed);
  }
  ++lock.forks;
}

void groundwork::end_fork(ForkSafeMutex& lock) {
  // Handlers that were registered during the fork have not run before it.
  if (!is_held_for_fork(lock) || --lock.forks != 0) return;
  lock.forking_thread.store(0, relaxed);
  pthread_mutex_unlock(&lock.mutex.mutex);
}

bool groundwork::is_held_for_fork(const ForkSafeMutex& lock) {
  return lock.forking_thread.load(relaxed) == own_id();
}
