// The timer service when it saves power. Both clocks are the test's, and so is each sleep
// of the service's thread: it ends when the test lets it, or when the library wakes it.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <groundwork/timer.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/fake_clock.h"
#include "support/library_sleep.h"
#include "support/log_capture.h"
#include "support/next_function.h"
#include "support/service_output.h"

using test::FakeClock;
using test::LogCapture;

namespace {

std::atomic<int> plain_sleeps{0};  // those of 10 ms
thread_local int init_refusal = 0;

// Where the simulated monotonic clock starts, in ns. No machine runs for 47 years.
constexpr int64_t kUptime = 1'500'000'000'000'000'000;

// The sleeps of the service's thread. The real condition variables of this class are those
// of <condition_variable>, which have their own calls.
class SleepControl {
 public:
  void begin() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_simulated_ = true;
    sleeps_ = 0;
    seen_ = 0;
  }

  void end() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_simulated_ = false;
    changed_.notify_all();
  }

  // Waits until the thread sleeps, for the first time since this was last called. Returns
  // the end of the sleep on the monotonic clock, in nanoseconds.
  int64_t await_sleep() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return sleeps_ > seen_; });
    seen_ = sleeps_;
    return deadline_;
  }

  bool is_another_sleep() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sleeps_ > seen_;
  }

  void time_out() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_timed_out_ = true;
    changed_.notify_all();
  }

  int count() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sleeps_;
  }

  // Of the library. Negative when the sleep is to be real.
  int sleep(pthread_cond_t* cond, pthread_mutex_t* held, int64_t deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    // One until a simulated time, begun when the simulation had just ended, is over.
    if (!is_simulated_) return deadline >= kUptime ? ETIMEDOUT : -1;
    cond_ = cond;
    deadline_ = deadline;
    is_signalled_ = false;
    is_timed_out_ = false;
    ++sleeps_;
    changed_.notify_all();
    pthread_mutex_unlock(held);
    changed_.wait(lock,
                  [this] { return is_signalled_ || is_timed_out_ || !is_simulated_; });
    const bool is_signalled = is_signalled_;
    cond_ = nullptr;
    lock.unlock();
    pthread_mutex_lock(held);
    return is_signalled ? 0 : ETIMEDOUT;
  }

  // False if the signal is not for our condition.
  bool signal(const pthread_cond_t* cond) {
    if (cond_.load() != cond) return false;
    const std::lock_guard<std::mutex> lock(mutex_);
    is_signalled_ = true;
    changed_.notify_all();
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<const pthread_cond_t*> cond_{nullptr};
  bool is_simulated_ = false;
  bool is_signalled_ = false;
  bool is_timed_out_ = false;
  int64_t deadline_ = 0;
  int sleeps_ = 0;
  int seen_ = 0;
};
SleepControl sleeps;

std::atomic<bool> is_monotonic_fake{false};
std::mutex monotonic_mutex;
int64_t monotonic_now =
    0;  // ns; guarded by the mutex, as not every target has such atomics

int64_t read_monotonic() {
  const std::lock_guard<std::mutex> lock(monotonic_mutex);
  return monotonic_now;
}

void set_monotonic(int64_t now) {
  const std::lock_guard<std::mutex> lock(monotonic_mutex);
  monotonic_now = now;
}

constexpr int64_t kMs = 1'000'000;  // ns

}  // namespace

extern "C" int LIBRARY_CLOCK_GETTIME(clockid_t clock, LibraryTimespec* time) noexcept {
  if (clock == CLOCK_MONOTONIC && is_monotonic_fake) {
    *time = {};
    const int64_t now = read_monotonic();
    time->tv_sec = static_cast<decltype(time->tv_sec)>(now / 1'000'000'000);
    time->tv_nsec = static_cast<decltype(time->tv_nsec)>(now % 1'000'000'000);
    return 0;
  }
  static auto* const function = NEXT_OF(LIBRARY_CLOCK_GETTIME);
  return function(clock, time);
}

extern "C" int LIBRARY_COND_TIMEDWAIT(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                      const LibraryTimespec* deadline) {
  const int64_t end = deadline->tv_sec * 1'000'000'000LL + deadline->tv_nsec;
  const int result = sleeps.sleep(cond, mutex, end);
  if (result >= 0) return result;
  static auto* const function = NEXT_OF(LIBRARY_COND_TIMEDWAIT);
  return function(cond, mutex, deadline);
}

extern "C" int pthread_cond_signal(pthread_cond_t* cond) noexcept {
  if (sleeps.signal(cond)) return 0;
  static auto* const function =
      test::next_function<decltype(pthread_cond_signal)>("pthread_cond_signal");
  return function(cond);
}

extern "C" int pthread_cond_init(pthread_cond_t* cond,
                                 const pthread_condattr_t* attributes) noexcept {
  if (init_refusal != 0) return init_refusal;
  static auto* const function =
      test::next_function<decltype(pthread_cond_init)>("pthread_cond_init");
  return function(cond, attributes);
}

extern "C" int LIBRARY_SELECT(int count, fd_set* read, fd_set* write, fd_set* except,
                              LibraryTimeval* time) {
  if (time->tv_sec == 0 && time->tv_usec == 10000) ++plain_sleeps;
  static auto* const function = NEXT_OF(LIBRARY_SELECT);
  return function(count, read, write, except, time);
}

namespace {

using namespace std::chrono_literals;

template <typename Predicate>
void await(Predicate is_so) {
  while (!is_so()) std::this_thread::sleep_for(1ms);
}

// The first choice of the process fails, for want of the condition; run first.
TEST(TimerPowerAtLoad, IsOffAndStaysSoWithoutACondition) {
  EXPECT_EQ(g_timer_save_power(0), 0);
  init_refusal = EAGAIN;
  EXPECT_EQ(g_timer_save_power(1), 0);
  init_refusal = 0;
  EXPECT_EQ(g_timer_save_power(0), 0);
}

TEST(TimerPower, ReturnsThePreviousChoice) {
  EXPECT_EQ(g_timer_save_power(-5), 0);
  EXPECT_EQ(g_timer_save_power(7), 1);
  EXPECT_EQ(g_timer_save_power(0), 1);
  EXPECT_EQ(g_timer_save_power(0), 0);
}

constexpr int64_t kStart = 1'700'000'000;  // s

// Simulated, with the service asleep for ten seconds and time 0.
class SimulatedTimerPower : public ::testing::Test {
 protected:
  SimulatedTimerPower() {
    set_monotonic(kUptime);
    is_monotonic_fake = true;
    sleeps.begin();
    g_start_ticks();
    g_get_ticks();
    EXPECT_EQ(g_timer_save_power(1), 0);
    EXPECT_EQ(g_timer_init(), 0);
    // Its first passes: before its handle was stored, and after it was woken by that.
    do {
      deadline_ = sleeps.await_sleep();
      if (sleep_time() < 10000) {
        sleeps.time_out();
        continue;
      }
    } while (sleep_time() < 10000);
    log.take();
  }

  ~SimulatedTimerPower() override {
    g_set_timer(0, nullptr);
    sleeps.end();
    is_monotonic_fake = false;
    g_timer_cleanup();
    g_timer_save_power(0);
  }

  int64_t now() const { return now_; }

  // The end of the present sleep, in ms from now.
  int64_t sleep_time() const {
    EXPECT_EQ((deadline_ - kUptime) % kMs, 0);
    return (deadline_ - kUptime) / kMs - now_;
  }

  void set_time(int64_t milliseconds) {
    clock.advance(milliseconds - now_);
    now_ = milliseconds;
    set_monotonic(kUptime + milliseconds * kMs);
  }

  // Lets the sleep last as long as it was to, and the service pass and sleep again.
  void sleep_through() {
    set_time(now_ + sleep_time());
    sleeps.time_out();
    deadline_ = sleeps.await_sleep();
  }

  // After a change: the thread was woken and sleeps on to the raster.
  void await_waking() { deadline_ = sleeps.await_sleep(); }

  test::ServiceOutputHidden output;
  LogCapture log{99};
  FakeClock clock{kStart};

 private:
  int64_t now_ = 0;  // ms
  int64_t deadline_ = 0;
};

struct Timer {
  std::vector<int64_t> calls;
  uint32_t result;
  std::function<int64_t()> time;
  std::function<void()> action = {};

  static uint32_t run(uint32_t, void* data) {
    auto* const timer = static_cast<Timer*>(data);
    timer->calls.push_back(timer->time());
    if (timer->action) timer->action();
    return timer->result;
  }
};

using Times = std::vector<int64_t>;

TEST_F(SimulatedTimerPower, WithoutTimersItSleepsTenSecondsEachTime) {
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(sleep_time(), 10000);
    sleep_through();
  }
  EXPECT_EQ(now(), 50000);
}

TEST_F(SimulatedTimerPower, ChangeWakesItToTheNextPointOfTheRaster) {
  Timer timer{{}, 100, [this] { return now(); }};
  set_time(1234);
  g_add_timer(100, Timer::run, &timer);
  await_waking();
  EXPECT_EQ(now() + sleep_time(), 1240);
  sleep_through();
  // Due less than 10 ms early: at 1325 to 1334.
  EXPECT_EQ(now() + sleep_time(), 1330);
  sleep_through();
  EXPECT_EQ(timer.calls, Times{1330});
  // It keeps its phase: due from 1425 on.
  EXPECT_EQ(now() + sleep_time(), 1430);
  sleep_through();
  EXPECT_EQ(timer.calls, (Times{1330, 1430}));
}

TEST_F(SimulatedTimerPower, OnThePointOfTheRasterItScansAtTheNext) {
  set_time(1230);
  g_add_timer(100, nullptr, nullptr);
  await_waking();
  EXPECT_EQ(now() + sleep_time(), 1240);
}

TEST_F(SimulatedTimerPower, FurtherChangesBeforeThatDoNotWakeItAgain) {
  set_time(101);
  g_add_timer(100, nullptr, nullptr);
  await_waking();
  for (int i = 0; i < 20; ++i) g_add_timer(1000, nullptr, nullptr);
  std::this_thread::sleep_for(5ms);
  EXPECT_FALSE(sleeps.is_another_sleep());
}

TEST_F(SimulatedTimerPower, EveryKindOfChangeWakesIt) {
  GTimerEntry* const id = g_add_timer(5000, nullptr, nullptr);
  const auto settle = [this] {
    await_waking();
    EXPECT_EQ(sleep_time(), 10);
    sleep_through();
  };
  settle();
  EXPECT_EQ(sleep_time(), 5000 - 10);
  EXPECT_EQ(g_remove_timer(id), 1);
  settle();
  EXPECT_EQ(sleep_time(), 10000);
  EXPECT_EQ(g_set_timer(3000, nullptr), 0);
  settle();
  EXPECT_EQ(sleep_time(), 3000 - 10);
  EXPECT_EQ(g_set_timer(0, nullptr), 0);
  settle();
  EXPECT_EQ(sleep_time(), 10000);
  EXPECT_EQ(g_timer_enable(1), 0);
  settle();
  EXPECT_EQ(g_timer_save_power(1), 1);
  settle();
  // Nothing changed: it sleeps on.
  EXPECT_EQ(g_remove_timer(id), 0);
  EXPECT_EQ(g_set_timer(0, nullptr), 0);
  std::this_thread::sleep_for(5ms);
  EXPECT_FALSE(sleeps.is_another_sleep());
}

TEST_F(SimulatedTimerPower, DisablingEndsTheSleep) {
  // Would hang otherwise: the time does not advance.
  EXPECT_EQ(g_timer_enable(0), 0);
  EXPECT_EQ(__atomic_load_n(&g_timer_pid, __ATOMIC_RELAXED), 0);
}

TEST_F(SimulatedTimerPower, TurnedOffItSleepsTenMillisecondsEachTime) {
  const int before = plain_sleeps;
  EXPECT_EQ(g_timer_save_power(0), 1);
  await_waking();  // to the raster
  sleeps.time_out();
  await([&] { return plain_sleeps >= before + 3; });
  EXPECT_FALSE(sleeps.is_another_sleep());
}

TEST_F(SimulatedTimerPower, LongIntervalsAreSleptInPieces) {
  Timer timer{{}, 3'600'000, [this] { return now(); }};
  g_add_timer(3'600'000, Timer::run, &timer);
  await_waking();
  int sleeps_slept = 0;
  while (timer.calls.size() < 2) {
    EXPECT_LE(sleep_time(), 10000);
    sleep_through();
    ++sleeps_slept;
  }
  EXPECT_EQ(timer.calls, (Times{3'600'000, 7'200'000}));
  EXPECT_LE(sleeps_slept, 2 * 361 + 2);
}

TEST_F(SimulatedTimerPower, IntervalOfZeroDoesNotKeepItAwake) {
  g_add_timer(0, nullptr, nullptr);
  await_waking();
  sleep_through();
  EXPECT_EQ(sleep_time(), 10000);
}

TEST_F(SimulatedTimerPower, GreatestIntervalsAreFarAway) {
  Timer timer{{}, 0xfffffff0u, [this] { return now(); }};
  g_set_timer(0, nullptr);
  g_add_timer(2'000'000'000, Timer::run, &timer);
  await_waking();
  for (int i = 0; i < 5; ++i) sleep_through();
  EXPECT_EQ(sleep_time(), 10000);
  EXPECT_EQ(timer.calls, Times{});
}

TEST_F(SimulatedTimerPower, TimerAddedInACallbackCounts) {
  Timer second{{}, 0, [this] { return now(); }};
  Timer first{
      {}, 0, [this] { return now(); }, [&] { g_add_timer(30, Timer::run, &second); }};
  g_add_timer(100, Timer::run, &first);
  await_waking();
  while (second.calls.empty()) sleep_through();
  EXPECT_EQ(first.calls, Times{100});
  // Its 0 was not looked at, as the list had changed: it stays, like in the usual mode.
  EXPECT_EQ(second.calls, Times{130});
}

TEST_F(SimulatedTimerPower, StepOfTheClockIsSeenAtTheNextWaking) {
  Timer timer{{}, 100'000, [this] { return now(); }};
  g_add_timer(100'000, Timer::run, &timer);
  await_waking();
  while (now() < 80'000) sleep_through();
  clock.advance(15'000);  // forward: the timer is due at 85,000
  while (timer.calls.empty()) sleep_through();
  EXPECT_GE(timer.calls[0], 85'000);
  EXPECT_LE(timer.calls[0], 90'020);
}

// What the service does in the usual mode: a pass at each point of the raster.
class Model {
 public:
  struct Entry {
    int id;
    uint32_t interval;
    int64_t last;
    uint32_t result;
  };
  std::vector<Entry> entries;  // newest first
  std::vector<std::pair<int, int64_t>> calls;

  void scan(int64_t now) {
    for (size_t i = 0; i < entries.size();) {
      Entry& entry = entries[i];
      const auto elapsed = static_cast<uint32_t>(now - entry.last);
      if (elapsed <= entry.interval - 10) {
        ++i;
        continue;
      }
      entry.last = elapsed < entry.interval ? entry.last + entry.interval : now;
      calls.emplace_back(entry.id, now);
      if (entry.result != entry.interval && entry.result == 0) {
        entries.erase(entries.begin() + static_cast<ptrdiff_t>(i));
        continue;
      }
      if (entry.result != entry.interval) entry.interval = (entry.result + 9) / 10 * 10;
      ++i;
    }
  }
};

struct RandomTimer {
  int id;
  uint32_t result;
  std::function<void(int)> note;
  GTimerEntry* entry = nullptr;

  static uint32_t run(uint32_t, void* data) {
    const auto* const timer = static_cast<RandomTimer*>(data);
    timer->note(timer->id);
    return timer->result;
  }
};

// Timers at random, and a model of the usual mode with the same ones.
class RandomTimerPower : public SimulatedTimerPower {
 protected:
  uint32_t random(uint32_t limit) { return static_cast<uint32_t>(engine_()) % limit; }

  void model_until(int64_t time) {
    while (modelled_ + 10 <= time) model_.scan(modelled_ += 10);
  }

  void add() {
    const int id = next_id_++;
    const uint32_t interval = 10 + random(random(4) == 0 ? 20000 : 300);
    const uint32_t rounded = (interval + 9) / 10 * 10;
    const uint32_t result = random(4) == 0 ? 0 : random(3) == 0 ? 1 + random(500) : rounded;
    RandomTimer& timer = timers_[id] = {
        id, result, [this](int called) { calls_.emplace_back(called, now()); }};
    timer.entry = g_add_timer(static_cast<int>(interval), RandomTimer::run, &timer);
    model_.entries.insert(model_.entries.begin(), {id, rounded, now(), result});
  }

  void remove() {
    const size_t index = random(static_cast<uint32_t>(model_.entries.size()));
    EXPECT_EQ(g_remove_timer(timers_[model_.entries[index].id].entry), 1);
    model_.entries.erase(model_.entries.begin() + static_cast<ptrdiff_t>(index));
  }

  std::mt19937 engine_{11};
  Model model_;
  std::vector<std::pair<int, int64_t>> calls_;
  std::map<int, RandomTimer> timers_;
  int64_t modelled_ = 0;  // the last point of the raster that the model has passed
  int next_id_ = 0;
};

TEST_F(RandomTimerPower, TimersFireWhenTheyWouldHaveFired) {
  for (int step = 0; step < 600; ++step) {
    // Some sleeps, then a change in the middle of one.
    for (uint32_t n = random(6); n > 0; --n) {
      sleep_through();
      model_until(now());
      ASSERT_EQ(calls_, model_.calls) << "at " << now();
    }
    if (sleep_time() < 2) continue;
    set_time(now() + 1 + random(static_cast<uint32_t>(sleep_time() - 1)));
    model_until(now() - 1);  // a pass at this very moment is still to come
    if (random(3) != 0 || model_.entries.empty()) {
      add();
    } else {
      remove();
    }
    ASSERT_FALSE(HasFailure());
    await_waking();
    sleep_through();  // to the raster, where further changes do not wake it
    model_until(now());
  }
  EXPECT_GT(calls_.size(), 500u);
}

// --- In real time.

// How often a thread of this process slept on its own account.
long voluntary_switches(long thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("voluntary_ctxt_switches:", 0) == 0) return std::stol(line.substr(24));
  }
  return -1;
}

std::atomic<long> service_thread{0};

uint32_t note_thread(uint32_t, void*) {
  service_thread = syscall(SYS_gettid);
  return 0;
}

class RealTimerPower : public ::testing::Test {
 protected:
  RealTimerPower() {
    g_start_ticks();
    g_timer_save_power(1);
    g_timer_init();
    service_thread = 0;
    g_add_timer(10, note_thread, nullptr);
    await([] { return service_thread != 0; });
    std::this_thread::sleep_for(100ms);
  }
  ~RealTimerPower() override {
    g_timer_cleanup();
    g_timer_save_power(0);
  }
  test::ServiceOutputHidden output;
};

TEST_F(RealTimerPower, IdleItWakesAtMostEveryFiveSeconds) {
  const long before = voluntary_switches(service_thread);
  std::this_thread::sleep_for(6s);
  EXPECT_LE(voluntary_switches(service_thread) - before, 1);
}

TEST_F(RealTimerPower, WithATimerOfASecondItWakesAtMostThreeTimesASecond) {
  static std::atomic<int> calls;
  calls = 0;
  g_add_timer(
      1000,
      [](uint32_t interval, void*) {
        ++calls;
        return interval;
      },
      nullptr);
  std::this_thread::sleep_for(100ms);
  const long before = voluntary_switches(service_thread);
  std::this_thread::sleep_for(4s);
  EXPECT_LE(voluntary_switches(service_thread) - before, 12);
  await([] { return calls >= 4; });
}

TEST_F(RealTimerPower, StopsWithoutWaitingForTheEndOfItsSleep) {
  const auto begin = std::chrono::steady_clock::now();
  g_timer_enable(0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(RealTimerPower, ServiceThatACallbackRestartedIsWokenByChanges) {
  static std::atomic<bool> is_restarted, is_called;
  is_restarted = is_called = false;
  g_add_timer(
      10,
      [](uint32_t, void*) -> uint32_t {
        g_timer_enable(0);
        g_timer_enable(1);
        std::this_thread::sleep_for(200ms);  // the new thread falls asleep meanwhile
        is_restarted = true;
        return 3'600'000;
      },
      nullptr);
  await([] { return is_restarted.load(); });
  std::this_thread::sleep_for(200ms);  // the previous thread ends
  const auto begin = std::chrono::steady_clock::now();
  g_add_timer(
      10,
      [](uint32_t, void*) -> uint32_t {
        is_called = true;
        return 0;
      },
      nullptr);
  await([] { return is_called.load(); });
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(RealTimerPower, TimersMayBeChangedOnManyThreadsWhileTheModeChanges) {
  static std::atomic<long> calls;
  calls = 0;
  const GTimerCallback count = [](uint32_t interval, void*) {
    return ++calls % 5 == 0 ? 0u : interval;
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&, i] {
      for (int n = 0; n < 200; ++n) {
        GTimerEntry* const id = g_add_timer(10 + n % 20, count, nullptr);
        if (n % 3 == 0) g_remove_timer(id);
        if (i == 0) g_timer_save_power(n % 3);
        if (n % 10 == 0) g_delay(5);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  g_timer_save_power(1);
  calls = 0;
  g_add_timer(10, count, nullptr);
  await([] { return calls > 3; });
}

}  // namespace
