// A timer service that wakes when a timer is due, not every 10 ms.
//
// The thread keeps the grid that it would have otherwise: its next scans would be 10, 20,
// 30 ms after the end of the last one, and it wakes for the first of these at which a timer
// is due. Any change of the timers may make another one the first, so it wakes the thread,
// which scans at the next point of the grid and sleeps again.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <algorithm>
#include <cstdint>

#include <pthread.h>

#include <groundwork/timer.h>

#include "core/cancellation.h"
#include "safe/monotonic_wait.h"
#include "thread/timer_service.h"

using namespace groundwork;

namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr int64_t kStep = int64_t{kTimerResolution} * 1'000'000;  // of the grid, in ns

// The longest sleep, 10 s: the ticks must be read at least every 30 s, or the time between
// two readings counts as a step of the clock.
constexpr uint32_t kMostSteps = 1000;

// All guarded by the service's lock.
struct TimerPower {
  pthread_cond_t changed;
  bool is_on;
  bool is_asleep;  // the thread waits for `changed`
};
constinit TimerPower power{};

// The number of grid points from `ticks` to the first at which a timer is due.
uint32_t steps_to_next_call(uint32_t ticks) {
  const uint32_t next_scan = ticks + kTimerResolution;
  uint32_t steps = kMostSteps;
  for (const GTimerEntry* timer = timer_service.timers; timer; timer = timer->next) {
    if (timer->interval == 0) continue;  // never due; it would wrap, as in a scan
    const uint32_t longest = timer->interval - kTimerResolution;
    const uint32_t elapsed = next_scan - timer->last;
    if (elapsed > longest) return 1;
    steps = std::min(steps, 1 + (longest - elapsed) / kTimerResolution + 1);
  }
  return steps;
}

int wait_until(int64_t instant) {
  const timespec deadline = monotonic_time(instant);
  return pthread_cond_timedwait(&power.changed, &timer_service.lock.mutex.mutex, &deadline);
}

// Sleeps until a point of the grid. The lock is held. False if it did not sleep.
LEFT_BY_CANCELLATION bool sleep_on_grid(uintptr_t number, uint32_t ticks, int64_t begin) {
  if (!power.is_on) return false;
  const auto goes_on = [number] { return timer_service.running.load(relaxed) == number; };
  if (!goes_on()) return true;
  // The thread scans nothing until its handle is stored.
  const bool scans = timer_service.thread.load(relaxed) != nullptr;
  const uint32_t steps = scans ? steps_to_next_call(ticks) : 1;
  power.is_asleep = true;
  int error = 0;
  while (power.is_asleep && error == 0) error = wait_until(begin + steps * kStep);
  if (!power.is_asleep && goes_on()) {
    const int64_t next = (monotonic_ns() - begin) / kStep + 1;
    while (error == 0) error = wait_until(begin + next * kStep);
  }
  power.is_asleep = false;
  return error == 0 || error == ETIMEDOUT;
}

// A thread that was replaced in its own callback has not slept, but its successor may be
// asleep and still has to be woken.
void end_sleep(void* number) {
  if (timer_service.running.load(relaxed) == reinterpret_cast<uintptr_t>(number)) {
    power.is_asleep = false;
  }
  pthread_mutex_unlock(&timer_service.lock.mutex.mutex);
}

LEFT_BY_CANCELLATION void sleep_until_due(uintptr_t number) {
  const uint32_t ticks = g_get_ticks();
  const int64_t begin = monotonic_ns();
  bool has_slept = false;
  pthread_mutex_lock(&timer_service.lock.mutex.mutex);
  with_cleanup(end_sleep, reinterpret_cast<void*>(number),
               [&] { has_slept = sleep_on_grid(number, ticks, begin); });
  end_sleep(reinterpret_cast<void*>(number));
  if (!has_slept) g_delay(kTimerResolution);
}

void wake() {
  if (!power.is_asleep) return;
  power.is_asleep = false;
  pthread_cond_signal(&power.changed);
}

// The condition variable may have waiters that do not exist in the child.
void renew() {
  power.is_asleep = false;
  init_monotonic(&power.changed);
}

constexpr TimerSleep kSleep = {sleep_until_due, wake, renew};

}  // namespace

extern "C" int g_timer_save_power(int on) {
  keep_timers_through_forks();
  MutexLock lock(&timer_service.lock.mutex);
  const bool was_on = power.is_on;
  if (on != 0 && timer_service.sleep.load(relaxed) == nullptr) {
    // If the condition variable cannot be initialised, which no known system does, nothing
    // changes.
    if (init_monotonic(&power.changed) != 0) return 0;
    timer_service.sleep.store(&kSleep, std::memory_order_release);
  }
  power.is_on = on != 0;
  wake();
  return was_on ? 1 : 0;
}
