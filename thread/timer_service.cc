// The timer service: one thread and a list of timers.
//
// One lock guards the list; no callback runs under it. What is read without it is atomic.
//
// SPDX-License-Identifier: MIT

#include "thread/timer_service.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <pthread.h>
#include <unistd.h>

#include <groundwork/thread.h>

#include "core/built_for.h"
#include "thread/fork_safe_mutex.h"
#include "thread/service_thread.h"

using namespace groundwork;

constinit TimerService groundwork::timer_service;

extern "C" {
constinit int g_timer_pid = 0;
constinit uint32_t g_alarm_interval = 0;
constinit GTimerCallback g_alarm_callback = nullptr;
}

namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr TimerService& service = timer_service;

void before_fork() {
  begin_fork(service.lock);
}

void after_fork_in_parent() {
  end_fork(service.lock);
}

// A child has the timers but no thread, unless a callback forked it: the service is stopped
// there and may be started again.
void after_fork_in_child() {
  if (is_held_for_fork(service.lock)) {
    GThread* const thread = service.thread.load(relaxed);
    const std::atomic_ref<int> pid(g_timer_pid);
    if (thread != nullptr && is_own_thread(thread)) {
      pid.store(getpid(), relaxed);
    } else {
      if (thread != nullptr) {
        forget_thread(thread);
        g_thread_free(thread);
      }
      service.thread.store(nullptr, relaxed);
      service.running.store(0, relaxed);
      pid.store(0, relaxed);
    }
    if (const TimerSleep* const sleep = service.sleep.load(relaxed)) sleep->renew();
  }
  end_fork(service.lock);
}

// Returns what unlock_list() needs.
bool lock_list() {
  const bool is_set_up = service.is_set_up.load(relaxed);
  if (!is_set_up) [[unlikely]] {
    keep_timers_through_forks();
    g_thread_mutex_lock(nullptr);
  }
  pthread_mutex_lock(&service.lock.mutex.mutex);
  return is_set_up;
}

void unlock_list(bool was_set_up) {
  pthread_mutex_unlock(&service.lock.mutex.mutex);
  if (!was_set_up) [[unlikely]]
    g_thread_mutex_unlock(nullptr);
}

// For a change of the list. The list is locked.
void note_change() {
  ++service.changes;
  if (const TimerSleep* const sleep = service.sleep.load(relaxed)) sleep->wake();
}

// Called after the service was started or stopped.
void wake_thread() {
  const TimerSleep* const sleep = service.sleep.load(relaxed);
  if (sleep == nullptr) return;
  MutexLock lock(&service.lock.mutex);
  sleep->wake();
}

// Not noexcept: if a callback has cancelled its own thread, that may take effect here.
void sleep_between_scans(uintptr_t number) {
  if (const TimerSleep* const sleep = service.sleep.load(std::memory_order_acquire)) {
    sleep->sleep(number);
  } else {
    g_delay(kTimerResolution);
  }
}

// Called when the thread has ended, or is about to detach itself.
void drop_thread() {
  MutexLock lock(&service.lock.mutex);
  service.thread.store(nullptr, relaxed);
}

uint32_t rounded_up(uint32_t interval) {
  return (interval + kTimerResolution - 1) / kTimerResolution * kTimerResolution;
}

// Null when memory is exhausted. The list is locked.
GTimerEntry* add_entry(int interval, GTimerCallback callback, void* param) {
  auto* const entry = static_cast<GTimerEntry*>(std::calloc(1, sizeof(GTimerEntry)));
  if (entry == nullptr) return nullptr;
  // Signed, unlike the rounding of a callback's result: -1 becomes 0 and never fires.
  const auto sum =
      static_cast<int32_t>(static_cast<uint32_t>(interval) + kTimerResolution - 1);
  entry->interval = static_cast<uint32_t>(sum / kTimerResolution * kTimerResolution);
  entry->callback = callback;
  entry->param = param;
  entry->last = g_get_ticks();
  entry->next = service.timers;
  service.timers = entry;
  ++service.timer_count;
  if constexpr (kForSpeed) service.index.note_added(entry, service.timer_count);
  note_change();
  return entry;
}

// The list is locked.
void clear_list() {
  if (service.timers == nullptr) return;
  while (service.timers != nullptr) {
    GTimerEntry* const entry = service.timers;
    service.timers = entry->next;
    std::free(entry);
  }
  service.timer_count = 0;
  if constexpr (kForSpeed) service.index.clear();
  note_change();
}

// The list is locked. `before` is null for the first timer.
void remove_entry(GTimerEntry* before, GTimerEntry* entry) {
  GTimerEntry** const link = before != nullptr ? &before->next : &service.timers;
  *link = entry->next;
  --service.timer_count;
  if constexpr (kForSpeed) service.index.note_removed(entry, before, entry->next);
  std::free(entry);
}

// The list is locked. False if there is no timer with this id, which may be any value.
bool find_entry(const GTimerEntry* id, GTimerEntry** before) {
  if constexpr (kForSpeed) {
    if (service.index.exists()) return service.index.find(id, before);
  }
  *before = nullptr;
  for (GTimerEntry* entry = service.timers; entry != nullptr; entry = entry->next) {
    if (entry == id) return true;
    *before = entry;
  }
  return false;
}

// The function that g_set_timer() registers; its parameter is the callback.
uint32_t call_single(uint32_t interval, void* param) {
  const auto callback = reinterpret_cast<GTimerCallback>(param);
  return callback != nullptr ? callback(interval, param) : interval;
}

// Calls every callback that is due. Ends early if a callback, or another thread during it,
// has changed the list: entries may be gone. The rest waits for the next scan.
void scan() {
  bool lock = lock_list();
  uint32_t known_changes = service.changes;
  const uint32_t now = g_get_ticks();
  GTimerEntry* before = nullptr;
  GTimerEntry* next;
  for (GTimerEntry* entry = service.timers; entry != nullptr; entry = next) {
    next = entry->next;
    const uint32_t interval = entry->interval;
    const uint32_t elapsed = now - entry->last;
    // Kept: an interval of 0 wraps here, so such a timer never fires.
    if (elapsed <= interval - kTimerResolution) {
      before = entry;
      continue;
    }
    // A timer that is slightly early keeps its phase; a late one starts a new period and
    // drops what it missed.
    entry->last = elapsed < interval ? entry->last + interval : now;
    const GTimerCallback callback = entry->callback;
    void* const param = entry->param;
    unlock_list(lock);
    const uint32_t result = callback != nullptr ? callback(interval, param) : interval;
    lock = lock_list();
    if (service.changes != known_changes) break;
    // The order matters: a timer of interval 0 stays if it fires after all, because the
    // clock was set back by some milliseconds, and returns 0.
    if (result != interval && result == 0) {
      remove_entry(before, entry);
      known_changes = ++service.changes;
      continue;
    }
    if (result != interval) entry->interval = rounded_up(result);
    before = entry;
  }
  unlock_list(lock);
}

// Not noexcept: a callback may be cancelled or leave with pthread_exit().
void* run_timer(void* arg) {
  const auto number = reinterpret_cast<uintptr_t>(arg);
  const std::atomic_ref<int> pid(g_timer_pid);
  pid.store(getpid(), relaxed);
  while (service.running.load(std::memory_order_acquire) == number) {
    if (service.thread.load(relaxed) != nullptr) scan();
    sleep_between_scans(number);
  }
  // Kept, "thead" included: programs look for this line.
  std::printf("g_timer:%d pid=%d timer thead=%d quit\n", __LINE__, getpid(),
              pid.load(relaxed));
  // A thread that was replaced does not clear the id of its successor.
  if (service.running.load(relaxed) == 0) pid.store(0, relaxed);
  return nullptr;
}

int stop() {
  GThread* const thread = service.thread.load(std::memory_order_acquire);
  if (thread == nullptr) {
    std::printf("g_timer:%d pid=%d g_timer_enable: not running\n", __LINE__, getpid());
    return 0;
  }
  std::printf("g_timer:%d pid=%d g_timer_enable(0)\n", __LINE__, getpid());
  service.running.store(0, std::memory_order_release);
  wake_thread();
  if (is_own_thread(thread)) {
    drop_thread();
    free_own_thread(thread);  // called by a callback, which cannot wait for itself
  } else {
    join_thread(thread);
    drop_thread();
    g_thread_free(thread);
  }
  return 0;
}

int start() {
  if (service.thread.load(relaxed) != nullptr) return 0;
  keep_timers_through_forks();
  if (++service.last_number == 0) ++service.last_number;
  service.running.store(service.last_number, std::memory_order_release);
  GThread* const thread =
      g_thread_create(run_timer, reinterpret_cast<void*>(service.last_number), "run_timer");
  service.thread.store(thread, std::memory_order_release);
  return thread != nullptr ? 0 : -1;
}

}  // namespace

void groundwork::keep_timers_through_forks() {
  survive_forks(service.lock, before_fork, after_fork_in_parent, after_fork_in_child);
}

extern "C" int g_timer_init(void) {
  if (service.thread.load(relaxed) != nullptr) {
    // Kept: "runnin" is cut.
    std::printf("g_timer:%d pid=%d *ERR* g_timer_init fail: thread runnin\n", __LINE__,
                getpid());
    return -1;
  }
  const int result = g_timer_enable(1);
  service.is_set_up.store(true, relaxed);
  return result;
}

extern "C" void g_timer_cleanup(void) {
  g_timer_enable(0);
  g_set_timer(0, nullptr);
  // The count of changes is not reset: this may be a callback, whose scan must notice.
  if (!service.is_set_up.exchange(false, relaxed)) g_thread_mutex_free(nullptr);
}

extern "C" int g_timer_enable(int on) {
  if (on == 0) return stop();
  const int result = start();
  wake_thread();
  return result;
}

extern "C" GTimerEntry* g_add_timer(int interval, GTimerCallback callback, void* param) {
  if (!service.is_set_up.load(relaxed)) {
    std::printf("g_timer:%d pid=%d you must call g_init(g_init_timer) first\n", __LINE__,
                getpid());
    return nullptr;
  }
  if (interval < kTimerResolution) {
    std::printf("g_timer:%d pid=%d **WARNING** g_add_timer interval=%d < %d\n", __LINE__,
                getpid(), interval, kTimerResolution);
  }
  if (service.thread.load(relaxed) == nullptr) {
    std::printf("g_timer:%d pid=%d WARNING timer is not running\n", __LINE__, getpid());
  }
  const bool lock = lock_list();
  GTimerEntry* const entry = add_entry(interval, callback, param);
  unlock_list(lock);
  return entry;
}

extern "C" GTimerEntry* g_add_timer_ex(int interval, GTimerCallback callback, void* param) {
  return g_add_timer(interval, callback, param);
}

extern "C" int g_remove_timer(GTimerEntry* id) {
  const bool lock = lock_list();
  GTimerEntry* before;
  const bool is_found = find_entry(id, &before);
  if (is_found) {
    remove_entry(before, id);
    note_change();
  }
  unlock_list(lock);
  if (is_found) return 1;
  std::printf("g_timer:%d pid=%d g_remove_timer: *ERR* id=%p not found\n", __LINE__,
              getpid(), static_cast<void*>(id));
  return 0;
}

extern "C" int g_set_timer(uint32_t interval, GTimerCallback callback) {
  int result = 0;
  const bool lock = lock_list();
  clear_list();
  if (interval != 0) {
    void* const param = reinterpret_cast<void*>(callback);
    if (add_entry(static_cast<int>(interval), call_single, param) == nullptr) result = -1;
  }
  unlock_list(lock);
  return result;
}
