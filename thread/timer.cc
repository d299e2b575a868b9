// The timer service, and the tick clock it lives by.
//
// One lock guards the list of timers; no callback runs under it. Words that are read
// without it are atomics. The tick state is three 32-bit words, each read and written on
// its own: threads that notice a step of the clock together may both answer it.
//
// SPDX-License-Identifier: MIT

#include <groundwork/timer.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <groundwork/thread.h>

#include "core/cancellation.h"
#include "thread/own_thread.h"

using namespace groundwork;

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
static_assert(std::atomic<uint32_t>::is_always_lock_free &&
              std::atomic<void*>::is_always_lock_free);

extern "C" {
constinit int g_timer_pid = 0;
constinit uint32_t g_alarm_interval = 0;
constinit GTimerCallback g_alarm_callback = nullptr;
}

namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr int kResolution = 10;    // ms
constexpr uint32_t kStep = 30001;  // ms; a jump of the ticks as long as this is a step

// The list, guarded by the timer lock.
constinit GTimerEntry* timers = nullptr;
constinit uint32_t list_changes = 0;  // counts additions, removals and clearings

constinit std::atomic<GMutex*> timer_lock{nullptr};
constinit std::atomic<GThread*> timer_thread{nullptr};

// The number of the thread that is to keep running, 0 for none. A thread that was replaced
// from its own callback thus ends.
constinit std::atomic<std::uintptr_t> running{0};
constinit std::uintptr_t last_number = 0;

// The instant of tick 0, and the ticks last told. Ticks are modulo 2^32, so the seconds may
// be, too.
constinit std::atomic<uint32_t> base_seconds{0};
constinit std::atomic<int32_t> base_microseconds{0};
constinit std::atomic<uint32_t> last_ticks{0};

// Excludes threads from each other while the timer lock does not exist.
constinit pthread_mutex_t stand_in = PTHREAD_MUTEX_INITIALIZER;

// Locks the list and returns what unlock_list() needs. A missing timer lock is reported as
// by any use of a null mutex, and the work goes on.
GMutex* lock_list() {
  for (;;) {
    GMutex* const lock = timer_lock.load(std::memory_order_acquire);
    g_thread_mutex_lock(lock);
    if (lock != nullptr) return lock;
    pthread_mutex_lock(&stand_in);
    if (timer_lock.load(relaxed) == nullptr) return nullptr;
    pthread_mutex_unlock(&stand_in);  // the lock was created meanwhile
  }
}

void unlock_list(GMutex* lock) {
  if (lock == nullptr) pthread_mutex_unlock(&stand_in);
  g_thread_mutex_unlock(lock);
}

// Whoever works on the list without a timer lock has finished when this returns.
void publish_lock(GMutex* lock) {
  pthread_mutex_lock(&stand_in);
  timer_lock.store(lock, std::memory_order_release);
  pthread_mutex_unlock(&stand_in);
}

uint32_t rounded_up(uint32_t interval) {
  return (interval + kResolution - 1) / kResolution * kResolution;
}

// Null when memory is exhausted. The list is locked.
GTimerEntry* add_entry(int interval, GTimerCallback callback, void* param) {
  auto* const entry = static_cast<GTimerEntry*>(std::calloc(1, sizeof(GTimerEntry)));
  if (entry == nullptr) return nullptr;
  // Signed, unlike the rounding of a callback's result: -1 becomes 0 and never fires.
  const auto sum = static_cast<int32_t>(static_cast<uint32_t>(interval) + kResolution - 1);
  entry->interval = static_cast<uint32_t>(sum / kResolution * kResolution);
  entry->callback = callback;
  entry->param = param;
  entry->last = g_get_ticks();
  entry->next = timers;
  timers = entry;
  ++list_changes;
  return entry;
}

// The list is locked.
void clear_list() {
  if (timers == nullptr) return;
  while (timers != nullptr) {
    GTimerEntry* const entry = timers;
    timers = entry->next;
    std::free(entry);
  }
  ++list_changes;
}

// What g_set_timer() registers for a callback; the callback is its own parameter.
uint32_t call_single(uint32_t interval, void* param) {
  const auto callback = reinterpret_cast<GTimerCallback>(param);
  return callback != nullptr ? callback(interval, param) : interval;
}

// Calls every callback that is due. Ends early when a callback, or another thread during
// it, changed the list: entries may be gone. The rest waits for the next scan.
void scan() {
  GMutex* lock = lock_list();
  uint32_t known_changes = list_changes;
  const uint32_t now = g_get_ticks();
  GTimerEntry** link = &timers;
  while (GTimerEntry* const entry = *link) {
    const uint32_t interval = entry->interval;
    const uint32_t elapsed = now - entry->last;
    // Kept: an interval of 0 wraps here, so such a timer never fires.
    if (elapsed <= interval - kResolution) {
      link = &entry->next;
      continue;
    }
    // Slightly early keeps its phase; late starts afresh and drops what it missed.
    entry->last = elapsed < interval ? entry->last + interval : now;
    const GTimerCallback callback = entry->callback;
    void* const param = entry->param;
    unlock_list(lock);
    const uint32_t result = callback != nullptr ? callback(interval, param) : interval;
    lock = lock_list();
    if (list_changes != known_changes) break;
    if (result == 0) {
      *link = entry->next;
      std::free(entry);
      known_changes = ++list_changes;
      continue;
    }
    if (result != interval) entry->interval = rounded_up(result);
    link = &entry->next;
  }
  unlock_list(lock);
}

// Not noexcept: a callback may be cancelled or leave with pthread_exit().
void* run_timer(void* number) {
  const std::atomic_ref<int> pid(g_timer_pid);
  pid.store(getpid(), relaxed);
  while (running.load(std::memory_order_acquire) ==
         reinterpret_cast<std::uintptr_t>(number)) {
    if (timer_thread.load(relaxed) != nullptr) scan();
    g_delay(kResolution);
  }
  // Kept, "thead" included: programs look for this line.
  std::printf("g_timer:%d pid=%d timer thead=%d quit\n", __LINE__, getpid(),
              pid.load(relaxed));
  // A thread that was replaced leaves the id to its successor.
  if (running.load(relaxed) == 0) pid.store(0, relaxed);
  return nullptr;
}

int stop() {
  GThread* const thread = timer_thread.load(std::memory_order_acquire);
  if (thread == nullptr) {
    std::printf("g_timer:%d pid=%d g_timer_enable: not running\n", __LINE__, getpid());
    return 0;
  }
  std::printf("g_timer:%d pid=%d g_timer_enable(0)\n", __LINE__, getpid());
  running.store(0, std::memory_order_release);
  if (is_own_thread(thread)) {
    free_own_thread(thread);  // a callback stops the service: there is nobody to wait
  } else {
    g_thread_wait(thread);
  }
  timer_thread.store(nullptr, relaxed);
  return 0;
}

int start() {
  if (timer_thread.load(relaxed) != nullptr) return 0;
  if (++last_number == 0) ++last_number;
  running.store(last_number, std::memory_order_release);
  GThread* const thread =
      g_thread_create(run_timer, reinterpret_cast<void*>(last_number), "run_timer");
  timer_thread.store(thread, std::memory_order_release);
  return thread != nullptr ? 0 : -1;
}

}  // namespace

extern "C" int g_timer_init(void) {
  if (timer_thread.load(relaxed) != nullptr) {
    // Kept: the word is cut.
    std::printf("g_timer:%d pid=%d *ERR* g_timer_init fail: thread runnin\n", __LINE__,
                getpid());
    return -1;
  }
  const int result = g_timer_enable(1);
  // A service that was only disabled has its lock still.
  if (timer_lock.load(relaxed) == nullptr) publish_lock(g_thread_mutex_new());
  return result;
}

extern "C" void g_timer_cleanup(void) {
  g_timer_enable(0);
  g_set_timer(0, nullptr);
  // The count of changes goes on: this may be a callback, whose scan must notice.
  GMutex* const lock = timer_lock.load(relaxed);
  publish_lock(nullptr);
  g_thread_mutex_free(lock);
}

extern "C" int g_timer_enable(int on) {
  return on == 0 ? stop() : start();
}

extern "C" GTimerEntry* g_add_timer(int interval, GTimerCallback callback, void* param) {
  if (timer_lock.load(std::memory_order_acquire) == nullptr) {
    std::printf("g_timer:%d pid=%d you must call g_init(g_init_timer) first\n", __LINE__,
                getpid());
    return nullptr;
  }
  if (interval < kResolution) {
    std::printf("g_timer:%d pid=%d **WARNING** g_add_timer interval=%d < %d\n", __LINE__,
                getpid(), interval, kResolution);
  }
  if (timer_thread.load(relaxed) == nullptr) {
    std::printf("g_timer:%d pid=%d WARNING timer is not running\n", __LINE__, getpid());
  }
  GMutex* const lock = lock_list();
  GTimerEntry* const entry = add_entry(interval, callback, param);
  unlock_list(lock);
  return entry;
}

extern "C" GTimerEntry* g_add_timer_ex(int interval, GTimerCallback callback, void* param) {
  return g_add_timer(interval, callback, param);
}

extern "C" int g_remove_timer(GTimerEntry* id) {
  GMutex* const lock = lock_list();
  GTimerEntry** link = &timers;
  while (*link != nullptr && *link != id) link = &(*link)->next;
  GTimerEntry* const found = *link;
  if (found != nullptr) {
    *link = found->next;
    std::free(found);
    ++list_changes;
  }
  unlock_list(lock);
  if (found != nullptr) return 1;
  std::printf("g_timer:%d pid=%d g_remove_timer: *ERR* id=%p not found\n", __LINE__,
              getpid(), static_cast<void*>(id));
  return 0;
}

extern "C" int g_set_timer(uint32_t interval, GTimerCallback callback) {
  int result = 0;
  GMutex* const lock = lock_list();
  clear_list();
  if (interval != 0) {
    void* const param = reinterpret_cast<void*>(callback);
    if (add_entry(static_cast<int>(interval), call_single, param) == nullptr) result = -1;
  }
  unlock_list(lock);
  return result;
}

extern "C" int g_start_ticks(void) {
  timeval now{};
  const int result = gettimeofday(&now, nullptr);
  if (result == 0) {
    base_seconds.store(static_cast<uint32_t>(now.tv_sec), relaxed);
    base_microseconds.store(static_cast<int32_t>(now.tv_usec), relaxed);
  }
  return result;
}

extern "C" uint32_t g_get_ticks(void) {
  timeval now{};
  gettimeofday(&now, nullptr);
  const auto seconds = static_cast<uint32_t>(now.tv_sec);
  const auto microseconds = static_cast<int32_t>(now.tv_usec);
  const int32_t fraction = (microseconds - base_microseconds.load(relaxed)) / 1000;
  uint32_t ticks =
      (seconds - base_seconds.load(relaxed)) * 1000 + static_cast<uint32_t>(fraction);

  const uint32_t last = last_ticks.load(relaxed);
  const uint32_t ahead = ticks - last;
  if (std::min(ahead, 0 - ahead) >= kStep) {
    ticks = last + kResolution;
    // Kept: anchored to the last ticks, not to those told now, so the next reading may be
    // up to 10 ms behind this one.
    const uint32_t base =
        seconds * 1000 + static_cast<uint32_t>(microseconds / 1000) - last;
    base_seconds.store(base / 1000, relaxed);
    base_microseconds.store(static_cast<int32_t>(base % 1000 * 1000), relaxed);
  }
  last_ticks.store(ticks, relaxed);
  return ticks;
}

extern "C" LEFT_BY_CANCELLATION void g_delay(int ms) {
  // select() leaves the rest in it, so an interrupted sleep goes on for the rest only.
  timeval left{};
  left.tv_sec = ms / 1000;
  left.tv_usec = ms % 1000 * 1000;
  int result;
  do {
    errno = 0;
    result = select(0, nullptr, nullptr, nullptr, &left);
  } while (result != 0 && errno == EINTR);
}
