// Timeouts, each with its own thread.
//
// A timeout ends in one of two ways, which may race: its function returns 0, or the
// application frees it. Both first take it out of the list of active timeouts, and the one
// that finds it there releases it. The list's lock is held only briefly, never while user
// code runs.
//
// SPDX-License-Identifier: MIT

#include <groundwork/timeout.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <pthread.h>
#include <sys/time.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "thread/fork_safe_mutex.h"
#include "thread/mutex_lock.h"
#include "thread/service_thread.h"

using namespace groundwork;

struct GTimeout {
  GThread* thread;
  GTimeoutFunc func;
  void* data;
  std::atomic<int32_t> interval;  // ms; 0 stops the worker
  timeval start;                  // of the current period; only used by the worker
  bool is_ending;                 // freed in its own function; only used by the worker
  GTimeout* next;                 // in the list of active timeouts
};
static_assert(offsetof(GTimeout, thread) == 0 &&
              offsetof(GTimeout, func) == sizeof(void*) &&
              offsetof(GTimeout, data) == 2 * sizeof(void*) &&
              offsetof(GTimeout, interval) == 3 * sizeof(void*) &&
              offsetof(GTimeout, start) == 4 * sizeof(void*) &&
              std::atomic<int32_t>::is_always_lock_free);

namespace {

constexpr char kSource[] = "g_timeout";
constexpr auto relaxed = std::memory_order_relaxed;

constinit ForkSafeMutex active_lock;
constinit GTimeout* active = nullptr;  // guarded by active_lock

// Returns the link to a timeout in the list, or the null link at the end. A timeout that is
// not in the list may be gone, so it is only compared. The list is locked.
GTimeout** link_to(const GTimeout* timeout) {
  GTimeout** link = &active;
  while (*link != nullptr && *link != timeout) link = &(*link)->next;
  return link;
}

// Takes a timeout out of the list, for the caller to release. False if someone else
// releases it or has done so, and if this is a call from its own function, on whose return
// it is released.
bool claim_from_outside(const GTimeout* timeout) {
  MutexLock lock(&active_lock.mutex);
  GTimeout** const link = link_to(timeout);
  GTimeout* const found = *link;
  if (found == nullptr) return false;
  if (is_own_thread(found->thread)) {
    found->is_ending = true;
    return false;
  }
  *link = found->next;
  return true;
}

// The same for the worker, after the function has returned.
bool claim_from_inside(const GTimeout* timeout) {
  MutexLock lock(&active_lock.mutex);
  GTimeout** const link = link_to(timeout);
  if (*link == nullptr) return false;
  *link = timeout->next;
  return true;
}

// The rest of the period in milliseconds; the elapsed time is rounded.
int64_t remaining(const GTimeout& timeout, int32_t interval) {
  timeval now{};
  gettimeofday(&now, nullptr);
  const int64_t seconds = now.tv_sec - timeout.start.tv_sec;
  const int64_t microseconds = now.tv_usec - timeout.start.tv_usec;
  return interval - (seconds * 1000 + (microseconds + 500) / 1000);
}

// May end early: an interrupted sleep is not resumed.
LEFT_BY_CANCELLATION void sleep_for(int64_t milliseconds) {
  if (milliseconds <= 0) return;
  // One unsigned division: on 32-bit targets any other adds a kilobyte of code.
  const auto rest = static_cast<uint64_t>(milliseconds);
  const uint64_t seconds = rest / 1000;
  timespec time{};
  time.tv_sec = static_cast<time_t>(seconds);
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>((rest - seconds * 1000) * 1'000'000);
  nanosleep(&time, nullptr);
}

// Not noexcept: g_timeout_free() cancels the thread in the function or in the sleep.
LEFT_BY_CANCELLATION void* run(void* arg) {
  auto* const timeout = static_cast<GTimeout*>(arg);
  while (timeout->interval.load(relaxed) != 0) {
    gettimeofday(&timeout->start, nullptr);
    const bool goes_on = timeout->func(timeout->data) != 0 && !timeout->is_ending;
    if (!goes_on) {
      if (claim_from_inside(timeout)) {
        free_own_thread(timeout->thread);
        std::free(timeout);
      }
      break;
    }
    sleep_for(remaining(*timeout, timeout->interval.load(relaxed)));
  }
  return nullptr;
}

void before_fork() {
  begin_fork(active_lock);
}

void after_fork_in_parent() {
  end_fork(active_lock);
}

// A child has no timeout's thread, unless that thread forked. Its timeouts may be freed.
void after_fork_in_child() {
  if (is_held_for_fork(active_lock)) {
    for (GTimeout* timeout = active; timeout != nullptr; timeout = timeout->next) {
      if (!is_own_thread(timeout->thread)) forget_thread(timeout->thread);
    }
  }
  end_fork(active_lock);
}

// Starts the thread and adds the timeout to the list. Under the lock, since the function
// may return 0 before the thread's handle is stored. False when memory is exhausted.
bool start(GTimeout* timeout, const char* name) {
  survive_forks(active_lock, before_fork, after_fork_in_parent, after_fork_in_child);
  MutexLock lock(&active_lock.mutex);
  timeout->thread = g_thread_create(run, timeout, name);
  if (timeout->thread == nullptr) return false;
  timeout->next = active;
  active = timeout;
  return true;
}

}  // namespace

extern "C" GTimeout* g_timeout_new(const char* name, int interval, GTimeoutFunc func,
                                   void* data) {
  CHECK_ARG(interval > 0, nullptr);
  CHECK_ARG(func != NULL, nullptr);
  Owned<GTimeout> timeout(static_cast<GTimeout*>(std::calloc(1, sizeof(GTimeout))));
  if (timeout != nullptr) {
    timeout->func = func;
    timeout->data = data;
    timeout->interval.store(interval, relaxed);
    gettimeofday(&timeout->start, nullptr);
    if (start(timeout.get(), name)) return timeout.release();
  }
  g_log(G_LOG_WARNING, kSource, __LINE__, "can't allocate space for a new timeout.");
  return nullptr;
}

extern "C" void g_timeout_free(GTimeout* timeout) {
  CHECK_ARG(timeout != NULL);
  // Cancelling the caller must not leave the timeout half released.
  CancellationHeld held;
  if (!claim_from_outside(timeout)) return;
  timeout->interval.store(0, relaxed);
  g_thread_cancel(timeout->thread);
  g_thread_wait(timeout->thread);
  std::free(timeout);
}

extern "C" int g_timeout_set_priority(GTimeout* timeout, int priority) {
  // Kept: here a failed check returns the result of g_log(), not -1.
  if (timeout == NULL) return report_failed_check(kSource, __LINE__, "timeout != NULL");
  return g_thread_set_priority(timeout->thread, priority);
}
