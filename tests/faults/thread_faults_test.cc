// Threads, mutexes, events, callback lists, timers, timeouts.
//
// What sleeps and wakes does not make the same calls in each pass, so of most functions
// here only the first few calls fail.
//
// SPDX-License-Identifier: MIT

#include <atomic>
#include <cstdint>

#include <unistd.h>

#include <groundwork/groundwork.h>

#include "faults/sweep.h"

using namespace faults;

namespace {

constexpr int kFew = 4;

// Waits as long as a busy machine may need. Returns whether it became true.
template <typename Predicate>
bool becomes(Predicate is_so) {
  for (int tries = 0; tries < 20000; ++tries) {
    if (is_so()) return true;
    usleep(500);
  }
  return false;
}

// --- Threads.

std::atomic<int> thread_runs{0};

void* run_thread(void*) {
  ++thread_runs;
  return nullptr;
}

void create_thread(Pass& pass) {
  thread_runs = 0;
  GThread* const thread =
      faulty(pass, [] { return g_thread_create(run_thread, nullptr, "sweep"); });
  if (thread == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
    return;
  }
  const int result = faulty(pass, [&] { return g_thread_wait(thread); });
  EXPECT_EQ(result, 0);
  // A thread that the system could not start has a handle too.
  if (!pass.struck()) {
    EXPECT_EQ(thread_runs, 1);
  } else if (pass.struck(Call::kPthreadCreate)) {
    EXPECT_EQ(thread_runs, 0);
  }
}

void* sleep_long(void*) {
  for (;;) sleep(1);
}

void cancel_thread(Pass& pass) {
  GThread* const thread =
      faulty(pass, [] { return g_thread_create(sleep_long, nullptr, nullptr); });
  if (thread == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
    return;
  }
  int results[2];
  {
    const Faults faults(pass);
    results[0] = g_thread_cancel(thread);
    results[1] = g_thread_wait(thread);
  }
  EXPECT_EQ(results[0], 0);
  EXPECT_EQ(results[1], 0);
}

void know_own_thread(Pass& pass) {
  GThread* const self = faulty(pass, [] { return g_thread_self(); });
  EXPECT_EQ(self == nullptr, pass.struck());
  if (self == nullptr) return;
  EXPECT_EQ(faulty(pass, [&] { return g_thread_check_same(self, self); }), 1);
  faulty(pass, [&] {
    g_thread_free(self);
    return 0;
  });
}

void set_priority(Pass& pass) {
  GThread* const self = faulty(pass, [] { return g_thread_self(); });
  if (self == nullptr) return;
  for (const int priority : {0, 3, 6}) {
    const Since since(pass);
    const int reports = pass.reports();
    const int result = faulty(pass, [&] { return g_thread_set_priority(self, priority); });
    const bool is_refused = since.struck(Call::kPthreadSetschedparam);
    EXPECT_EQ(result, is_refused ? -1 : 0);
    EXPECT_EQ(pass.reports(), reports + (is_refused ? 1 : 0));
  }
  g_thread_free(self);
}

// --- Mutexes and events.

void use_mutex(Pass& pass) {
  GMutex* const mutex = faulty(pass, [] { return g_thread_mutex_new(); });
  EXPECT_EQ(mutex == nullptr, pass.struck(Call::kAllocation) != 0);
  if (mutex == nullptr) return;
  int results[4];
  {
    const Faults faults(pass);
    results[0] = g_thread_mutex_lock(mutex);
    results[1] = g_thread_mutex_unlock(mutex);
    results[2] = g_thread_mutex_trylock(mutex);
    results[3] = g_thread_mutex_unlock(mutex);
  }
  for (const int result : results) EXPECT_EQ(result, 0);
  faulty(pass, [&] {
    g_thread_mutex_free(mutex);
    return 0;
  });
  EXPECT_EQ(pass.reports(), pass.struck(Call::kPthreadMutexDestroy));
}

void make_event(Pass& pass) {
  GThreadEvent* const event = faulty(pass, [] { return g_thread_event_new(); });
  EXPECT_EQ(event == nullptr, pass.struck(Call::kAllocation) != 0);
  if (event == nullptr) return;
  EXPECT_EQ(pass.reports(), pass.struck(Call::kPthreadCondInit));
  const Since since(pass);
  int reports = pass.reports();
  const int signalled = faulty(pass, [&] { return g_thread_event_signal(event); });
  EXPECT_EQ(signalled, 0);
  const int broadcast = faulty(pass, [&] { return g_thread_event_broadcast(event); });
  EXPECT_EQ(broadcast, 0);
  reports += since.struck(Call::kPthreadCondSignal) ? 1 : 0;
  reports += since.struck(Call::kPthreadCondBroadcast) ? 1 : 0;
  EXPECT_EQ(pass.reports(), reports);
  faulty(pass, [&] {
    g_thread_event_free(event);
    return 0;
  });
}

struct Waiter {
  GThreadEvent* event;
  int timeout;  // ms; 0: none
  std::atomic<int> result{-7};
  std::atomic<bool> is_done{false};
};

void* wait_for_event(void* data) {
  auto* const waiter = static_cast<Waiter*>(data);
  waiter->result = waiter->timeout == 0
                       ? g_thread_event_wait(waiter->event)
                       : g_thread_event_wait_timeout(waiter->event, waiter->timeout);
  waiter->is_done = true;
  return nullptr;
}

// A waiter returns after a signal, or immediately with the wait's error. Signals are
// repeated: one that comes before the wait is lost, and one may fail.
void wait_in_thread(Pass& pass, int timeout, int (*signal)(GThreadEvent*)) {
  GThreadEvent* const event = g_thread_event_new();
  Waiter waiter;
  waiter.event = event;
  waiter.timeout = timeout;
  GThread* thread = nullptr;
  {
    const Faults faults(pass);
    thread = g_thread_create(wait_for_event, &waiter, nullptr);
    for (int tries = 0; tries < 30 && thread != nullptr && !waiter.is_done; ++tries) {
      usleep(500);
      signal(event);
    }
  }
  const bool is_started = thread != nullptr && pass.struck(Call::kPthreadCreate) == 0 &&
                          pass.struck(Call::kAllocation) == 0;
  if (is_started) {
    EXPECT_TRUE(becomes([&] {
      g_thread_event_broadcast(event);
      return waiter.is_done.load();
    }));
    if (pass.struck(Call::kPthreadCondWait) == 0) {
      EXPECT_EQ(waiter.result, 0);
    }
  }
  if (thread != nullptr) g_thread_wait(thread);
  g_thread_event_free(event);
}

void wait_for_signal(Pass& pass) {
  wait_in_thread(pass, 0, g_thread_event_signal);
}

void wait_for_broadcast(Pass& pass) {
  wait_in_thread(pass, 0, g_thread_event_broadcast);
}

void wait_with_timeout(Pass& pass) {
  wait_in_thread(pass, 2, g_thread_event_signal);
}

// --- Callback lists.

int callback_runs = 0;
int count_run(void*, void*) {
  ++callback_runs;
  return 0;
}

void use_callbacks(Pass& pass) {
  GCallback* const list = faulty(pass, [] { return g_callback_new(); });
  EXPECT_EQ(list == nullptr, pass.struck());
  if (list == nullptr) return;
  int added = 0;
  for (const int priority : {5, 3, 9}) {  // the first, before it, after it
    const Since since(pass);
    const int result =
        faulty(pass, [&] { return g_callback_add(list, count_run, nullptr, priority); });
    EXPECT_EQ(result, since.struck(Call::kAllocation) ? -1 : 0);
    added += result == 0 ? 1 : 0;
    callback_runs = 0;
    EXPECT_EQ(faulty(pass, [&] { return g_callback_execute(list, nullptr); }), 0);
    EXPECT_EQ(callback_runs, added);
  }
  const int removed =
      faulty(pass, [&] { return g_callback_remove(list, count_run, nullptr); });
  EXPECT_EQ(removed, 0);
  callback_runs = 0;
  g_callback_execute(list, nullptr);
  EXPECT_EQ(callback_runs, added - (added > 0 ? 1 : 0));
  faulty(pass, [&] {
    g_callback_free(list);
    return 0;
  });
}

void use_modules(Pass& pass) {
  EXPECT_EQ(faulty(pass, [] { return g_module_init(); }), 0);
  const bool has_registry = pass.struck() == 0;
  int registered = 0;
  for (const int module : {1, 1, 17, 33}) {
    const Since since(pass);
    const int result = faulty(
        pass, [&] { return g_module_callback_register(module, count_run, nullptr, 0); });
    if (!since.struck(Call::kAllocation) && has_registry) {
      EXPECT_EQ(result, 0);
    }
    registered += result == 0 ? 1 : 0;
  }
  callback_runs = 0;
  for (const int module : {1, 17, 33}) {
    EXPECT_EQ(faulty(pass, [&] { return g_module_callback_execute(module, nullptr); }), 0);
  }
  EXPECT_EQ(callback_runs, registered);
  faulty(pass, [] {
    g_module_callback_cancel(1, count_run, nullptr);
    g_module_cleanup();
    return 0;
  });
  EXPECT_EQ(g_module_callback_register(1, count_run, nullptr, 0), -1);
}

// --- Ticks and timers.

void tell_ticks(Pass& pass) {
  const int result = faulty(pass, [] { return g_start_ticks(); });
  EXPECT_EQ(result, pass.struck(Call::kGettimeofday) ? -1 : 0);
  uint32_t ticks[3];
  for (uint32_t& tick : ticks) tick = faulty(pass, [] { return g_get_ticks(); });
  // A reading that fails is a step of the clock: the ticks go on by 10 ms, or the next do.
  for (int i = 1; i < 3; ++i) EXPECT_LT(ticks[i] - ticks[i - 1] + 20, 20000u);
  g_start_ticks();
  g_get_ticks();
}

void delay(Pass& pass) {
  const uint32_t before = g_get_ticks();
  faulty(pass, [] {
    g_delay(3);
    return 0;
  });
  // An interrupted sleep is resumed for the rest of its time.
  if (pass.struck(Call::kSelect) == 0 || pass.error() == EINTR) {
    EXPECT_GE(g_get_ticks() - before, 2u);
  }
}

std::atomic<int> fired{0};

uint32_t fire(uint32_t interval, void*) {
  ++fired;
  return interval;
}

// If the service runs and its clock advances, a timer fires. In any case the clean-up ends
// the service.
void use_timers(Pass& pass) {
  g_start_ticks();
  fired = 0;
  int started = 0;
  GTimerEntry* timer = nullptr;
  GTimerEntry* other = nullptr;
  {
    const Faults faults(pass);
    started = g_timer_init();
    timer = g_add_timer(10, fire, nullptr);
    other = g_add_timer_ex(1000, fire, nullptr);
  }
  EXPECT_TRUE(started == 0 || pass.struck(Call::kAllocation));
  EXPECT_TRUE(timer != nullptr || pass.struck(Call::kAllocation));
  const bool runs = pass.struck(Call::kAllocation, Call::kPthreadCreate) == 0;
  if (runs) {
    faulty(pass, [] {
      // While the clock fails, no time passes for the timers.
      for (int tries = 0; tries < 200 && fired == 0; ++tries) usleep(500);
      return g_get_ticks() == 0;
    });
    EXPECT_TRUE(becomes([] { return fired > 0; }));
    EXPECT_EQ(faulty(pass, [&] { return g_remove_timer(other); }), 1);
    EXPECT_EQ(faulty(pass, [&] { return g_remove_timer(timer); }), 1);
  }
  faulty(pass, [] {
    g_timer_enable(0);
    g_timer_cleanup();
    return 0;
  });
  EXPECT_EQ(g_timer_pid, 0);
}

uint32_t fire_single(uint32_t interval, void*) {
  ++fired;
  return interval;
}

void set_timer(Pass& pass) {
  g_start_ticks();
  fired = 0;
  faulty(pass, [] { return g_timer_init(); });
  const bool runs = pass.struck(Call::kAllocation, Call::kPthreadCreate) == 0;
  const Since since(pass);
  // Also without the timers' lock, which is reported.
  const int result = faulty(pass, [] { return g_set_timer(10, fire_single); });
  EXPECT_EQ(result, since.struck(Call::kAllocation) ? -1 : 0);
  if (result == 0 && runs) {
    EXPECT_TRUE(becomes([] { return fired > 0; }));
  }
  EXPECT_EQ(faulty(pass, [] { return g_set_timer(0, nullptr); }), 0);
  faulty(pass, [] {
    g_timer_cleanup();
    return 0;
  });
}

// --- Timeouts.

int fire_timeout(void*) {
  ++fired;
  return 1;
}

void use_timeout(Pass& pass) {
  fired = 0;
  GTimeout* const timeout =
      faulty(pass, [] { return g_timeout_new("sweep", 2, fire_timeout, nullptr); });
  if (timeout == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
    EXPECT_STREQ(pass.last_report(), "can't allocate space for a new timeout.");
    return;
  }
  // Its thread may have failed to start.
  if (pass.struck(Call::kPthreadCreate, Call::kAllocation) == 0) {
    EXPECT_TRUE(becomes([] { return fired > 0; }));
  }
  const Since since(pass);
  const int result = faulty(pass, [&] {
    usleep(5000);
    return g_timeout_set_priority(timeout, 2);
  });
  EXPECT_TRUE(result == 0 || pass.struck());
  faulty(pass, [&] {
    g_timeout_free(timeout);
    return 0;
  });
}

std::atomic<bool> is_over{false};

int end_timeout(void*) {
  is_over = true;
  return 0;
}

// Its function ends it: the worker releases all.
void end_of_timeout(Pass& pass) {
  is_over = false;
  GTimeout* const timeout =
      faulty(pass, [] { return g_timeout_new("sweep", 2, end_timeout, nullptr); });
  if (timeout == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
  } else if (pass.struck(Call::kPthreadCreate, Call::kAllocation) == 0) {
    EXPECT_TRUE(becomes([] { return is_over.load(); }));
    EXPECT_TRUE(becomes([&] { return pass.outstanding_blocks() == 0; }));
  } else {
    g_timeout_free(timeout);
  }
}

const Scenarios scenarios(
    "thread",
    {
        {"CreateAThread", {"g_thread_create", "g_thread_wait"}, create_thread},
        {"CancelAThread", {"g_thread_cancel"}, cancel_thread},
        {"OwnThread",
         {"g_thread_self", "g_thread_check_same", "g_thread_free"},
         know_own_thread},
        {"Priority", {"g_thread_set_priority"}, set_priority},
        {"Mutex",
         {"g_thread_mutex_new", "g_thread_mutex_free", "g_thread_mutex_lock",
          "g_thread_mutex_trylock", "g_thread_mutex_unlock"},
         use_mutex},
        {"Event",
         {"g_thread_event_new", "g_thread_event_free", "g_thread_event_signal",
          "g_thread_event_broadcast"},
         make_event},
        {"WaitForASignal", {"g_thread_event_wait"}, wait_for_signal, kFew},
        {"WaitForABroadcast", {}, wait_for_broadcast, kFew},
        {"WaitWithATimeOut", {"g_thread_event_wait_timeout"}, wait_with_timeout, kFew},
        {"CallbackList",
         {"g_callback_new", "g_callback_free", "g_callback_add", "g_callback_remove",
          "g_callback_execute"},
         use_callbacks},
        {"ModuleCallbacks",
         {"g_module_init", "g_module_cleanup", "g_module_callback_register",
          "g_module_callback_cancel", "g_module_callback_execute"},
         use_modules},
        {"Ticks", {"g_start_ticks", "g_get_ticks"}, tell_ticks},
        {"Delay", {"g_delay"}, delay},
        {"Timers",
         {"g_timer_init", "g_timer_cleanup", "g_timer_enable", "g_add_timer",
          "g_add_timer_ex", "g_remove_timer"},
         use_timers,
         kFew},
        {"SingleTimer", {"g_set_timer"}, set_timer, kFew},
        {"Timeout",
         {"g_timeout_new", "g_timeout_free", "g_timeout_set_priority"},
         use_timeout,
         kFew},
        {"TimeoutThatEnds", {}, end_of_timeout, kFew},
    });

}  // namespace
