// The state of the timer service, and the hook for another way to sleep.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_TIMER_SERVICE_H
#define GROUNDWORK_THREAD_TIMER_SERVICE_H

#include <groundwork/timer.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "thread/fork_safe_mutex.h"
#include "thread/timer_index.h"

struct GTimerEntry {
  uint32_t interval;  // ms, a multiple of the resolution
  GTimerCallback callback;
  void* param;
  uint32_t last;  // ticks when the interval being timed began
  GTimerEntry* next;
};
static_assert(offsetof(GTimerEntry, interval) == 0 &&
              offsetof(GTimerEntry, callback) == sizeof(void*) &&
              offsetof(GTimerEntry, param) == 2 * sizeof(void*) &&
              offsetof(GTimerEntry, last) == 3 * sizeof(void*) &&
              offsetof(GTimerEntry, next) == 4 * sizeof(void*));

namespace groundwork {

constexpr int kTimerResolution = 10;  // ms

// How the service's thread sleeps between two scans, unless it sleeps for the resolution.
struct TimerSleep {
  // Called by thread number `number`.
  void (*sleep)(uintptr_t number);
  // Called after timers have changed, or the service was started or stopped. The lock is
  // held.
  void (*wake)();
  // Called in a child of fork(). The lock is held.
  void (*renew)();
};

struct TimerService {
  ForkSafeMutex lock;
  GTimerEntry* timers = nullptr;  // guarded by lock
  size_t timer_count = 0;         // guarded by lock
  TimerIndex index;               // guarded by lock
  uint32_t changes = 0;           // guarded by lock; additions, removals and clearings

  // True from g_timer_init() to g_timer_cleanup(). While false, each use of the list
  // reports a null mutex, but works.
  std::atomic<bool> is_set_up{false};

  std::atomic<GThread*> thread{nullptr};  // cleared only under lock, for fork()
  // The number of the thread that is to keep running, 0 for none. So a thread that was
  // replaced from its own callback ends.
  std::atomic<uintptr_t> running{0};
  uintptr_t last_number = 0;

  std::atomic<const TimerSleep*> sleep{nullptr};  // never reset
};
static_assert(std::atomic<uintptr_t>::is_always_lock_free &&
              std::atomic<void*>::is_always_lock_free);

[[gnu::visibility("hidden")]] extern TimerService timer_service;

// Must be called before the service's lock is taken for the first time.
void keep_timers_through_forks();

}  // namespace groundwork

#endif
