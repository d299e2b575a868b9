// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/thread.h>
#include <groundwork/timeout.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include "support/allocation_faults.h"
#include "support/fake_clock.h"
#include "support/library_sleep.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using test::AllocationFaults;
using test::check_line;
using test::FakeClock;
using test::LogCapture;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

// While a test has one, sleeps end immediately: each is recorded and advances the fake
// clock.
struct Sleeps {
  std::mutex mutex;
  FakeClock* clock = nullptr;
  int64_t cut_to = -1;  // a signal ends sleeps after so many milliseconds
  std::vector<int64_t> milliseconds;
};
Sleeps sleeps;

std::atomic<bool> creation_fails{false};
std::atomic<bool> hold_next_start{false};  // the next thread created is held up...
std::atomic<bool> start_waits{false};      // ...as long as this is set
std::atomic<int> live_threads{0};          // neither joined nor detached

// What the thread that is held up is for.
struct HeldStart {
  void* (*function)(void*);
  void* arg;

  static void* run(void* held) {
    while (start_waits) sched_yield();  // no cancellation point
    const auto* const start = static_cast<HeldStart*>(held);
    return start->function(start->arg);
  }
};
HeldStart held_start;

// False when the sleep is to be real. Not inlined: a cancelled sleep leaves its caller's
// frame by unwinding, and the address sanitizer would still guard locals there.
[[gnu::noinline]] bool simulate(int64_t seconds, int64_t nanoseconds) {
  const std::lock_guard<std::mutex> lock(sleeps.mutex);
  if (sleeps.clock == nullptr) return false;
  EXPECT_EQ(nanoseconds % 1'000'000, 0);
  const int64_t asked = seconds * 1000 + nanoseconds / 1'000'000;
  sleeps.milliseconds.push_back(asked);
  sleeps.clock->advance(sleeps.cut_to >= 0 ? sleeps.cut_to : asked);
  return true;
}

}  // namespace

extern "C" int LIBRARY_NANOSLEEP(const LibraryTimespec* time, LibraryTimespec* rest) {
  if (simulate(time->tv_sec, time->tv_nsec)) {
    errno = EINTR;
    return sleeps.cut_to >= 0 ? -1 : 0;
  }
  static auto* const function = NEXT_OF(LIBRARY_NANOSLEEP);
  return function(time, rest);
}

extern "C" int pthread_create(pthread_t* id, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* arg) noexcept {
  if (creation_fails) return EAGAIN;
  static auto* const function =
      test::next_function<decltype(pthread_create)>("pthread_create");
  ++live_threads;
  if (hold_next_start.exchange(false)) {
    held_start = {start, arg};
    return function(id, attributes, HeldStart::run, &held_start);
  }
  return function(id, attributes, start, arg);
}

extern "C" int pthread_join(pthread_t id, void** result) {
  static auto* const function = test::next_function<decltype(pthread_join)>("pthread_join");
  const int error = function(id, result);
  if (error == 0) --live_threads;
  return error;
}

extern "C" int pthread_detach(pthread_t id) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_detach)>("pthread_detach");
  const int error = function(id);
  if (error == 0) --live_threads;
  return error;
}

namespace {

using namespace std::chrono_literals;

void await_threads(int count) {
  // Not nanosleep(), which may be simulated.
  while (live_threads > count) poll(nullptr, 0, 1);
}

// With the first timeout the library registers what is to happen at fork(), for which musl
// keeps a block of the program's heap. A timeout that ends itself may be freed before its
// thread has detached itself.
void warm_up_timeouts() {
  test::warm_up_threads();
  const int threads = live_threads;
  GTimeout* const timeout = g_timeout_new(
      "first", 1'000'000, [](void*) { return 0; }, nullptr);
  ASSERT_NE(timeout, nullptr);
  g_timeout_free(timeout);
  await_threads(threads);
}

// A function that takes some time by the fake clock and ends after some calls.
struct Work {
  FakeClock* clock = nullptr;
  int last_call = 0;           // 0: never ends
  std::vector<int64_t> takes;  // in turn
  std::atomic<int> calls{0};
  sem_t done;

  Work() { sem_init(&done, 0, 0); }
  ~Work() { sem_destroy(&done); }

  void await() {
    while (sem_wait(&done) != 0) {
    }
  }

  static int run(void* data) {
    auto* const work = static_cast<Work*>(data);
    const int call = ++work->calls;
    if (!work->takes.empty()) {
      const auto index = static_cast<size_t>(call - 1);
      work->clock->advance(work->takes[index % work->takes.size()]);
    }
    if (call != work->last_call) return 1;
    sem_post(&work->done);
    return 0;
  }
};

// After many timeouts: a thread frees its record only after it has detached itself, and the
// C library keeps a block with each stack that it caches.
bool few_blocks_remain(const AllocationFaults& faults) {
  for (int i = 0; i < 5000 && faults.outstanding() > 20; ++i) {
    std::this_thread::sleep_for(1ms);
  }
  return faults.outstanding() <= 20;
}

// Sleeps are simulated, and at the end the timeout has released itself.
class TimeoutRate : public ::testing::Test {
 protected:
  TimeoutRate() {
    const std::lock_guard<std::mutex> lock(sleeps.mutex);
    sleeps.clock = &clock;
    sleeps.cut_to = -1;
    sleeps.milliseconds.clear();
  }
  ~TimeoutRate() override {
    const std::lock_guard<std::mutex> lock(sleeps.mutex);
    sleeps.clock = nullptr;
  }

  std::vector<int64_t> run(int interval, int calls, std::vector<int64_t> takes) {
    const int threads = live_threads;
    Work work;
    work.clock = &clock;
    work.last_call = calls;
    work.takes = std::move(takes);
    EXPECT_NE(g_timeout_new("t", interval, Work::run, &work), nullptr);
    work.await();
    await_threads(threads);
    EXPECT_EQ(work.calls.load(), calls);
    const std::lock_guard<std::mutex> lock(sleeps.mutex);
    return sleeps.milliseconds;
  }

  FakeClock clock{1'700'000'000};
};

TEST_F(TimeoutRate, FirstCallComesImmediatelyAndCallsEndWithZero) {
  EXPECT_EQ(run(100, 1, {0}), std::vector<int64_t>{});
}

TEST_F(TimeoutRate, ThirdCallThatReturnsZeroIsTheLast) {
  EXPECT_EQ(run(100, 3, {0}), (std::vector<int64_t>{100, 100}));
}

TEST_F(TimeoutRate, AnyResultButZeroGoesOn) {
  const int threads = live_threads;
  static std::atomic<int> calls;
  calls = 0;
  g_timeout_new(
      "t", 1, [](void*) { return ++calls < 3 ? -1 : 0; }, nullptr);
  await_threads(threads);
  EXPECT_EQ(calls.load(), 3);
}

TEST_F(TimeoutRate, ShortCallsSleepForTheRestOfTheInterval) {
  EXPECT_EQ(run(100, 4, {30}), (std::vector<int64_t>{70, 70, 70}));
}

TEST_F(TimeoutRate, LongCallsFollowImmediately) {
  EXPECT_EQ(run(100, 4, {150}), std::vector<int64_t>{});
  EXPECT_EQ(run(100, 4, {100}), std::vector<int64_t>{});
}

TEST_F(TimeoutRate, PeriodIsMeasuredFromTheStartOfEachCall) {
  EXPECT_EQ(run(100, 5, {30, 150, 99, 0}), (std::vector<int64_t>{70, 1, 100}));
}

TEST_F(TimeoutRate, LongIntervalSplitsIntoSecondsAndTheRest) {
  EXPECT_EQ(run(2147483647, 2, {647}), std::vector<int64_t>{2147483000});
}

TEST_F(TimeoutRate, InterruptedSleepIsNotResumed) {
  sleeps.cut_to = 3;
  EXPECT_EQ(run(100, 3, {30}), (std::vector<int64_t>{70, 70}));
}

TEST_F(TimeoutRate, ClockSetBackDuringACallLengthensTheSleep) {
  EXPECT_EQ(run(100, 2, {-5000}), std::vector<int64_t>{5100});
}

TEST_F(TimeoutRate, ClockSetForwardSkipsTheSleep) {
  EXPECT_EQ(run(100, 3, {INT64_C(1'700'000'000'000), 10}), std::vector<int64_t>{90});
}

TEST_F(TimeoutRate, GoesOnThroughTheEndOf32BitTime) {
  clock.set(test::kLastSecondOf32Bits, 980000);
  // A second that begins during the call makes the rounding go down.
  EXPECT_EQ(run(100, 3, {30}), (std::vector<int64_t>{69, 70}));
}

// Each row: microseconds before and during the call, and the sleep of a 100 ms interval.
TEST_F(TimeoutRate, ElapsedTimeIsRoundedToTheNearestMillisecond) {
  struct Row {
    int64_t start, end, sleep;
  };
  static int64_t end;
  for (const Row& row : {Row{0, 499, 100}, Row{0, 500, 99}, Row{0, 30499, 70},
                         Row{0, 30500, 69}, Row{900000, 901499, 99}}) {
    const int threads = live_threads;
    clock.set(1000, row.start);
    end = row.end;
    static std::atomic<int> calls;
    calls = 0;
    static FakeClock* the_clock;
    the_clock = &clock;
    g_timeout_new(
        nullptr, 100,
        [](void*) {
          if (++calls == 2) return 0;
          the_clock->set(1000, end);
          return 1;
        },
        nullptr);
    await_threads(threads);
    const std::lock_guard<std::mutex> lock(sleeps.mutex);
    ASSERT_EQ(sleeps.milliseconds.size(), 1u);
    EXPECT_EQ(sleeps.milliseconds[0], row.sleep) << row.start << " " << row.end;
    sleeps.milliseconds.clear();
  }
}

TEST(TimeoutNew, BadArgumentsReportTheFirstCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_timeout_new("t", 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_timeout", "interval > 0")});
  EXPECT_EQ(g_timeout_new("t", -2147483647, Work::run, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_timeout", "interval > 0")});
  EXPECT_EQ(g_timeout_new("t", 1, nullptr, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_timeout", "func != NULL")});
}

// Unlike the capture this handler allocates nothing.
struct Warnings {
  int count = 0;
  bool are_as_expected = true;

  static int note(const char* text, void* arg) {
    auto* const warnings = static_cast<Warnings*>(arg);
    ++warnings->count;
    if (std::strncmp(text, "g_timeout:", 10) != 0 ||
        std::strstr(text, ": [WARNING] can't allocate space for a new timeout.") ==
            nullptr) {
      warnings->are_as_expected = false;
    }
    return 0;
  }
};

TEST(TimeoutNew, ExhaustedHeapIsReported) {
  warm_up_timeouts();
  LogCapture log;
  Warnings warnings;
  g_debug_set_handler(Warnings::note, &warnings);
  test::for_each_failed_allocation([&](AllocationFaults& faults) {
    warnings.count = 0;
    Work work;
    GTimeout* const timeout = g_timeout_new("t", 1, Work::run, &work);
    const bool failed = faults.failures() != 0;
    faults.disarm();
    EXPECT_EQ(warnings.count, failed ? 1 : 0);
    EXPECT_EQ(timeout == nullptr, failed);
    if (timeout != nullptr) g_timeout_free(timeout);
  });
  EXPECT_TRUE(warnings.are_as_expected);
}

TEST(TimeoutNew, ThreadThatCannotStartGivesATimeoutThatNeverCalls) {
  LogCapture log;
  warm_up_timeouts();
  AllocationFaults faults(0);
  Work work;
  creation_fails = true;
  GTimeout* const timeout = g_timeout_new("t", 1, Work::run, &work);
  creation_fails = false;
  faults.disarm();
  ASSERT_NE(timeout, nullptr);
  g_timeout_free(timeout);
  EXPECT_EQ(work.calls.load(), 0);
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(TimeoutNew, TakesTheTimeBeforeTheThreadDoes) {
  LogCapture log;
  FakeClock clock(1'700'000'000);
  Work work;
  creation_fails = true;
  GTimeout* const timeout = g_timeout_new("t", 1, Work::run, &work);
  creation_fails = false;
  EXPECT_EQ(clock.readings(), 1);
  g_timeout_free(timeout);
}

TEST(TimeoutNew, RecordBeginsWithThreadFunctionDataAndInterval) {
  Work work;
  GTimeout* const timeout = g_timeout_new("t", 12345, Work::run, &work);
  struct Record {
    GThread* thread;
    GTimeoutFunc func;
    void* data;
    int32_t interval;
  } record;
  std::memcpy(&record, static_cast<void*>(timeout), sizeof record);
  EXPECT_NE(record.thread, nullptr);
  EXPECT_EQ(record.func, Work::run);
  EXPECT_EQ(record.data, &work);
  EXPECT_EQ(record.interval, 12345);
  g_timeout_free(timeout);
}

TEST(TimeoutRelease, FunctionThatReturnsZeroLeaksNothing) {
  warm_up_timeouts();
  const int threads = live_threads;
  AllocationFaults faults(0);
  for (int i = 0; i < 300; ++i) {
    Work work;
    work.last_call = 1 + i % 2;
    ASSERT_NE(g_timeout_new("t", 1, Work::run, &work), nullptr);
    work.await();
    await_threads(threads);
  }
  faults.disarm();
  EXPECT_TRUE(few_blocks_remain(faults));
  EXPECT_EQ(live_threads.load(), threads);
}

TEST(TimeoutFree, NullReportsTheCheck) {
  LogCapture log;
  g_timeout_free(nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_timeout", "timeout != NULL")});
}

TEST(TimeoutFree, StopsATimeoutInItsSleep) {
  warm_up_timeouts();
  const int threads = live_threads;
  Work work;
  AllocationFaults faults(0);
  GTimeout* const timeout = g_timeout_new("t", 1'000'000, Work::run, &work);
  faults.disarm();
  while (work.calls == 0) std::this_thread::yield();
  g_timeout_free(timeout);
  EXPECT_EQ(work.calls.load(), 1);
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(live_threads.load(), threads);
}

TEST(TimeoutFree, StopsATimeoutInACallAtItsCancellationPoint) {
  static std::atomic<bool> is_called;
  static std::atomic<bool> cleaned_up;
  is_called = false;
  cleaned_up = false;
  GTimeout* const timeout = g_timeout_new(
      "t", 1,
      [](void*) {
        pthread_cleanup_push([](void*) { cleaned_up = true; }, nullptr);
        is_called = true;
        for (;;) pthread_testcancel();
        pthread_cleanup_pop(0);
        return 1;
      },
      nullptr);
  while (!is_called) std::this_thread::yield();
  g_timeout_free(timeout);
  EXPECT_TRUE(cleaned_up);
}

TEST(TimeoutFree, WaitsForACallWithoutCancellationPoint) {
  static std::atomic<int> stage;
  stage = 0;
  GTimeout* const timeout = g_timeout_new(
      "t", 1,
      [](void*) {
        stage = 1;
        for (int i = 0; i < 1000; ++i) sched_yield();
        stage = 2;
        return 1;
      },
      nullptr);
  while (stage == 0) std::this_thread::yield();
  g_timeout_free(timeout);
  EXPECT_EQ(stage.load(), 2);
}

TEST(TimeoutFree, ImmediatelyAfterCreationThousandsOfTimes) {
  warm_up_timeouts();
  const int threads = live_threads;
  AllocationFaults faults(0);
  Work work;
  for (int i = 0; i < 3000; ++i) {
    GTimeout* const timeout = g_timeout_new("t", 1 + i % 3, Work::run, &work);
    ASSERT_NE(timeout, nullptr);
    if (i % 4 == 1) std::this_thread::yield();
    g_timeout_free(timeout);
  }
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(live_threads.load(), threads);
}

// A timeout that is freed before its thread gets to it is never called.
TEST(TimeoutFree, SetsTheIntervalToZeroWhichTheThreadLooksAtFirst) {
  Work work;
  hold_next_start = true;
  start_waits = true;
  GTimeout* const timeout = g_timeout_new("t", 1, Work::run, &work);
  ASSERT_NE(timeout, nullptr);
  std::thread freeing([=] { g_timeout_free(timeout); });
  const auto* const interval = reinterpret_cast<const int32_t*>(
      reinterpret_cast<const char*>(timeout) + 3 * sizeof(void*));
  for (int i = 0; i < 10000 && __atomic_load_n(interval, __ATOMIC_RELAXED) != 0; ++i) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(__atomic_load_n(interval, __ATOMIC_RELAXED), 0);
  start_waits = false;
  freeing.join();
  EXPECT_EQ(work.calls.load(), 0);
}

// The function returns 0 just when the application frees the timeout: exactly one of the
// two releases it.
TEST(TimeoutFree, WhileTheFunctionReturnsZeroThousandsOfTimes) {
  warm_up_timeouts();
  const int threads = live_threads;
  AllocationFaults faults(0);
  struct Shared {
    std::atomic<bool> is_called;
    std::atomic<bool> may_end;
  };
  static Shared shared;
  for (int i = 0; i < 2000; ++i) {
    shared.is_called = false;
    shared.may_end = false;
    GTimeout* const timeout = g_timeout_new(
        "t", 1,
        [](void*) {
          shared.is_called = true;
          while (!shared.may_end) sched_yield();
          return 0;
        },
        nullptr);
    ASSERT_NE(timeout, nullptr);
    while (!shared.is_called) sched_yield();
    shared.may_end = true;
    for (int n = 0; n < i % 50; ++n) std::atomic_signal_fence(std::memory_order_seq_cst);
    g_timeout_free(timeout);
  }
  faults.disarm();
  await_threads(threads);
  EXPECT_TRUE(few_blocks_remain(faults));
}

TEST(TimeoutFree, InItsOwnFunctionTakesEffectWhenTheFunctionReturns) {
  const int threads = live_threads;
  static std::atomic<GTimeout*> own;
  static std::atomic<int> calls;
  own = nullptr;
  calls = 0;
  warm_up_timeouts();
  AllocationFaults faults(0);
  own = g_timeout_new(
      "t", 1,
      [](void*) {
        while (own == nullptr) sched_yield();
        g_timeout_free(own);
        pthread_testcancel();
        ++calls;
        return 1;
      },
      nullptr);
  faults.disarm();
  await_threads(threads);
  for (int i = 0; i < 5000 && faults.outstanding() != 0; ++i) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(calls.load(), 1);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(TimeoutFree, CallersCancellationWaitsUntilAllIsReleased) {
  struct Shared {
    GTimeout* timeout;
    std::atomic<bool> is_called{false};
    std::atomic<bool> may_go_on{false};
    std::atomic<bool> is_freeing{false};
  } shared;
  warm_up_timeouts();
  AllocationFaults faults(0);
  shared.timeout = g_timeout_new(
      "t", 1,
      [](void* data) {
        auto* const s = static_cast<Shared*>(data);
        s->is_called = true;
        while (!s->may_go_on) sched_yield();
        return 1;
      },
      &shared);
  while (!shared.is_called) sched_yield();
  GThread* const caller = g_thread_create(
      [](void* data) -> void* {
        auto* const s = static_cast<Shared*>(data);
        s->is_freeing = true;
        g_timeout_free(s->timeout);
        return nullptr;
      },
      &shared, "caller");
  faults.disarm();
  while (!shared.is_freeing) sched_yield();
  std::this_thread::sleep_for(20ms);
  g_thread_cancel(caller);
  shared.may_go_on = true;
  g_thread_wait(caller);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(Timeout, ManyRunSideBySide) {
  std::vector<Work> works(20);
  std::vector<GTimeout*> timeouts;
  for (Work& work : works) {
    timeouts.push_back(g_timeout_new("t", 2, Work::run, &work));
    ASSERT_NE(timeouts.back(), nullptr);
  }
  for (Work& work : works) {
    while (work.calls < 3) std::this_thread::sleep_for(1ms);
  }
  for (GTimeout* const timeout : timeouts) g_timeout_free(timeout);
}

TEST(Timeout, KeepsItsRateInRealTime) {
  static std::atomic<int> calls;
  calls = 0;
  const auto begin = std::chrono::steady_clock::now();
  GTimeout* const timeout = g_timeout_new(
      "t", 20,
      [](void*) {
        ++calls;
        return 1;
      },
      nullptr);
  while (calls < 4) std::this_thread::sleep_for(1ms);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 55ms);
  g_timeout_free(timeout);
}

TEST(TimeoutSetPriority, PassesTheThreadOn) {
  LogCapture log;
  Work work;
  GTimeout* const timeout = g_timeout_new("t", 1000, Work::run, &work);
  EXPECT_EQ(g_timeout_set_priority(timeout, 0), 0);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(g_timeout_set_priority(timeout, 7), -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_thread", "unknown priority 7")});
  g_timeout_free(timeout);
}

TEST(TimeoutSetPriority, OfNullReturnsWhatTheLogReturns) {
  {
    LogCapture log;  // its handler returns 0
    EXPECT_EQ(g_timeout_set_priority(nullptr, 3), 0);
    EXPECT_EQ(log.take(), Lines{check_line("g_timeout", "timeout != NULL")});
    g_debug_set_handler([](const char*, void*) { return 77; }, nullptr);
    EXPECT_EQ(g_timeout_set_priority(nullptr, 3), 77);
  }
  LogCapture silent(99);
  EXPECT_EQ(g_timeout_set_priority(nullptr, 3), 1);
}

}  // namespace
