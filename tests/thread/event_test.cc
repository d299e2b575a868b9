// SPDX-License-Identifier: MIT

#include <groundwork/thread.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>

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

// The arguments of the library's timed wait, and the result that a test gives it.
struct TimedWait {
  std::atomic<int> calls{0};
  int64_t seconds = 0;  // read when the waiter has ended
  int64_t nanoseconds = 0;
  std::atomic<int> interruptions{0};  // so many calls return EINTR immediately
  std::atomic<int> result{-1};        // instead of waiting; -1 waits
} timed_wait;

// A thread that sets this counts here before it locks a mutex.
thread_local bool announces_locks = false;
std::atomic<int> locks_announced{0};

std::atomic<int> untimed_waits{0};
std::atomic<int> wait_result{0};  // of the untimed wait, which then does not wait
std::atomic<int> cond_result{0};  // of init, destroy, signal and broadcast

// Records a timed wait and returns its result, or -1 to wait.
int result_for(int64_t seconds, int64_t nanoseconds) {
  ++timed_wait.calls;
  timed_wait.seconds = seconds;
  timed_wait.nanoseconds = nanoseconds;
  if (timed_wait.interruptions > 0) {
    --timed_wait.interruptions;
    return EINTR;
  }
  return timed_wait.result;
}

template <typename Function>
Function* real(const char* name) {
#if defined(__GLIBC__) && (defined(__x86_64__) || defined(__i386__)) && \
    !defined(__SANITIZE_THREAD__)
  // The C library has two generations of these functions here, and dlsym() may find the
  // older. The thread sanitizer's own must come first, though.
  if (void* const found = dlvsym(RTLD_NEXT, name, "GLIBC_2.3.2")) {
    return reinterpret_cast<Function*>(found);
  }
#endif
  return test::next_function<Function>(name);
}

int forced_or(int result) {
  if (cond_result == 0) return result;
  errno = EPERM;
  return cond_result;
}

}  // namespace

// A cancelled wait leaves these frames by a jump: keep them free of locals whose address is
// taken, which the address sanitizer would still guard then.
#if __SIZEOF_LONG__ == 8 || !defined(__GLIBC__)
extern "C" int pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                      const timespec* deadline) {
  const int result = result_for(deadline->tv_sec, deadline->tv_nsec);
  if (result >= 0) return result;
  static auto* const function =
      real<decltype(pthread_cond_timedwait)>(LIBRARY_NAME(pthread_cond_timedwait));
  return function(cond, mutex, deadline);
}
#else
extern "C" int __pthread_cond_timedwait64(pthread_cond_t*, pthread_mutex_t*,
                                          const LibraryTimespec*);
extern "C" int __pthread_cond_timedwait64(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                          const LibraryTimespec* deadline) {
  const int result = result_for(deadline->tv_sec, deadline->tv_nsec);
  if (result >= 0) return result;
  static auto* const function = test::next_function<decltype(__pthread_cond_timedwait64)>(
      "__pthread_cond_timedwait64");
  return function(cond, mutex, deadline);
}
#endif

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_mutex_lock)>("pthread_mutex_lock");
  if (announces_locks) ++locks_announced;
  return function(mutex);
}

extern "C" int pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
  ++untimed_waits;
  if (wait_result != 0) {
    errno = EPERM;
    return wait_result;
  }
  return real<decltype(pthread_cond_wait)>("pthread_cond_wait")(cond, mutex);
}

extern "C" int pthread_cond_init(pthread_cond_t* cond,
                                 const pthread_condattr_t* attributes) noexcept {
  return forced_or(
      real<decltype(pthread_cond_init)>("pthread_cond_init")(cond, attributes));
}

extern "C" int pthread_cond_destroy(pthread_cond_t* cond) noexcept {
  return forced_or(real<decltype(pthread_cond_destroy)>("pthread_cond_destroy")(cond));
}

extern "C" int pthread_cond_signal(pthread_cond_t* cond) noexcept {
  return forced_or(real<decltype(pthread_cond_signal)>("pthread_cond_signal")(cond));
}

extern "C" int pthread_cond_broadcast(pthread_cond_t* cond) noexcept {
  return forced_or(real<decltype(pthread_cond_broadcast)>("pthread_cond_broadcast")(cond));
}

namespace {

using namespace std::chrono_literals;

void reset() {
  timed_wait.calls = 0;
  timed_wait.interruptions = 0;
  timed_wait.result = -1;
  untimed_waits = 0;
  wait_result = 0;
  cond_result = 0;
}

// The mutex of an event, which follows its condition.
GMutex* mutex_of(const GThreadEvent* event) {
  GMutex* mutex;
  std::memcpy(&mutex, reinterpret_cast<const char*>(event) + sizeof(pthread_cond_t),
              sizeof mutex);
  return mutex;
}

class Event : public ::testing::Test {
 protected:
  Event() : event(g_thread_event_new()) { reset(); }
  ~Event() override {
    reset();
    g_thread_event_free(event);
  }

  // Waits until the number of untimed waits begun is `count`. A waiter counts before it
  // gives up the mutex, and signalling takes the mutex: a signal sent after this finds it.
  static void until_waiting(int count) {
    while (untimed_waits < count) std::this_thread::sleep_for(1ms);
  }

  GThreadEvent* const event;
};

TEST_F(Event, WaitReturnsZeroWhenSignalled) {
  int result = -1;
  std::thread waiter([&] { result = g_thread_event_wait(event); });
  until_waiting(1);
  EXPECT_EQ(g_thread_event_signal(event), 0);
  waiter.join();
  EXPECT_EQ(result, 0);
}

TEST_F(Event, SignalWakesOneWaiterAndBroadcastAll) {
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] {
      EXPECT_EQ(g_thread_event_wait(event), 0);
      ++woken;
    });
  }
  until_waiting(3);
  EXPECT_EQ(g_thread_event_signal(event), 0);
  while (woken < 1) std::this_thread::sleep_for(1ms);
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(woken.load(), 1);
  EXPECT_EQ(g_thread_event_broadcast(event), 0);
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(woken.load(), 3);
}

TEST_F(Event, SignalWithoutWaiterIsLost) {
  EXPECT_EQ(g_thread_event_signal(event), 0);
  EXPECT_EQ(g_thread_event_broadcast(event), 0);
  std::atomic<bool> woken{false};
  std::thread waiter([&] {
    g_thread_event_wait(event);
    woken = true;
  });
  until_waiting(1);
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(woken);
  g_thread_event_signal(event);
  waiter.join();
}

TEST_F(Event, NullReportsTheCheck) {
  LogCapture log;
  const Lines line{check_line("g_thread", "event != NULL")};
  EXPECT_EQ(g_thread_event_wait(nullptr), -1);
  EXPECT_EQ(log.take(), line);
  EXPECT_EQ(g_thread_event_wait_timeout(nullptr, 10), -1);
  EXPECT_EQ(log.take(), line);
  EXPECT_EQ(g_thread_event_signal(nullptr), -1);
  EXPECT_EQ(log.take(), line);
  EXPECT_EQ(g_thread_event_broadcast(nullptr), -1);
  EXPECT_EQ(log.take(), line);
  g_thread_event_free(nullptr);
  EXPECT_EQ(log.take(), line);
}

TEST_F(Event, FailuresOfTheConditionAreLoggedAndTheCallsGoOn) {
  LogCapture log;
  const std::string reason = std::strerror(EPERM);
  cond_result = EINVAL;
  AllocationFaults faults(0);
  GThreadEvent* const other = g_thread_event_new();
  faults.disarm();
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(log.take(), Lines{warning_line("g_thread", "can't init cond - " + reason)});
  EXPECT_EQ(g_thread_event_signal(other), 0);
  EXPECT_EQ(log.take(), Lines{warning_line("g_thread", "can't signal cond - " + reason)});
  EXPECT_EQ(g_thread_event_broadcast(other), 0);
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_thread", "can't signal cond broadcast - " + reason)});
  g_thread_event_free(other);
  EXPECT_EQ(log.take(),
            (Lines{warning_line("g_thread", "can't signal cond - " + reason),
                   warning_line("g_thread", "can't destroy cond - " + reason)}));
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST_F(Event, FailedWaitIsLoggedWithTheTextOfErrnoAndItsResultReturned) {
  LogCapture log;
  wait_result = EINVAL;
  EXPECT_EQ(g_thread_event_wait(event), EINVAL);
  EXPECT_EQ(log.take(), Lines{warning_line("g_thread", std::string("can't wait cond - ") +
                                                           std::strerror(EPERM))});
}

TEST_F(Event, FailedSecondWaitOfATimedOneIsReturnedAndNotLogged) {
  LogCapture log;
  timed_wait.result = ETIMEDOUT;
  wait_result = EINVAL;
  EXPECT_EQ(g_thread_event_wait_timeout(event, 1), EINVAL);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Event, SignalAndBroadcastWaitForTheMutex) {
  for (const auto wake : {g_thread_event_signal, g_thread_event_broadcast}) {
    std::atomic<bool> woken{false};
    g_thread_mutex_lock(mutex_of(event));
    locks_announced = 0;
    std::thread waker([&] {
      announces_locks = true;
      EXPECT_EQ(wake(event), 0);
      woken = true;
    });
    while (locks_announced == 0) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(10ms);
    EXPECT_FALSE(woken);
    g_thread_mutex_unlock(mutex_of(event));
    waker.join();
  }
}

TEST(EventNew, SurvivesFailedAllocationsSilently) {
  LogCapture log;
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    GThreadEvent* const event = g_thread_event_new();
    const bool failed = faults.failures() != 0;
    faults.disarm();
    EXPECT_EQ(event == nullptr, failed);
    if (event != nullptr) g_thread_event_free(event);
  });
  EXPECT_EQ(log.take(), Lines{});
}

TEST(EventNew, RecordHoldsTheConditionAndThenTheMutex) {
  GThreadEvent* const event = g_thread_event_new();
  GMutex* const mutex = mutex_of(event);
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(g_thread_mutex_lock(mutex), 0);
  EXPECT_EQ(g_thread_mutex_unlock(mutex), 0);
  g_thread_event_free(event);
}

TEST(EventFree, WakesAWaiterWhoLeavesSafely) {
  reset();
  for (int i = 1; i <= 50; ++i) {
    AllocationFaults faults(0);
    GThreadEvent* const event = g_thread_event_new();
    faults.disarm();
    int result = -1;
    std::thread waiter([&] { result = g_thread_event_wait(event); });
    while (untimed_waits < i) std::this_thread::yield();
    g_thread_event_free(event);
    waiter.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(faults.outstanding(), 0);
  }
}

// Runs a timed wait on another thread until it waits without limit, then wakes it.
int wait_and_wake(GThreadEvent* event, int timeout,
                  const std::function<void()>& before_waking = {}) {
  int result = -1;
  std::thread waiter([&] { result = g_thread_event_wait_timeout(event, timeout); });
  while (untimed_waits < 1) std::this_thread::sleep_for(1ms);
  if (before_waking) before_waking();
  g_thread_event_signal(event);
  waiter.join();
  return result;
}

TEST_F(Event, TimedOutWaitGoesOnUntilTheNextSignal) {
  LogCapture log;
  std::atomic<bool> returned{false};
  std::thread waiter([&] {
    EXPECT_EQ(g_thread_event_wait_timeout(event, 50), 0);
    returned = true;
  });
  until_waiting(1);
  EXPECT_EQ(timed_wait.calls.load(), 1);
  std::this_thread::sleep_for(100ms);
  EXPECT_FALSE(returned);
  g_thread_event_signal(event);
  waiter.join();
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Event, SignalDuringTheTimedWaitIsNotEnough) {
  LogCapture log;
  timed_wait.result = 0;
  std::atomic<bool> returned{false};
  std::thread waiter([&] {
    EXPECT_EQ(g_thread_event_wait_timeout(event, 100000), 0);
    returned = true;
  });
  until_waiting(1);
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(returned);
  g_thread_event_signal(event);
  waiter.join();
  EXPECT_EQ(log.take(), Lines{});
}

// The time that a caller waits for the mutex does not count.
TEST_F(Event, TimeoutBeginsWhenTheMutexIsHeld) {
  FakeClock clock(1000);
  g_thread_mutex_lock(mutex_of(event));
  locks_announced = 0;
  std::thread waiter([&] {
    announces_locks = true;
    EXPECT_EQ(g_thread_event_wait_timeout(event, 1), 0);
  });
  while (locks_announced == 0) std::this_thread::sleep_for(1ms);
  clock.set(2000);
  g_thread_mutex_unlock(mutex_of(event));
  until_waiting(1);
  g_thread_event_signal(event);
  waiter.join();
  EXPECT_EQ(timed_wait.seconds, 2000);
}

TEST_F(Event, InterruptedTimedWaitIsResumedWithTheSameDeadline) {
  LogCapture log;
  FakeClock clock(1000, 5);
  timed_wait.interruptions = 3;
  EXPECT_EQ(wait_and_wake(event, 1), 0);
  EXPECT_EQ(timed_wait.calls.load(), 4);
  EXPECT_EQ(clock.readings(), 1);
  EXPECT_EQ(timed_wait.seconds, 1000);
  EXPECT_EQ(timed_wait.nanoseconds, 1'005'000);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Event, FailedTimedWaitIsLoggedAsCriticalAndTheWaitGoesOn) {
  LogCapture log;
  timed_wait.result = EPERM;
  EXPECT_EQ(wait_and_wake(event, 1), 0);
  EXPECT_EQ(log.take(),
            Lines{"g_thread:#: [CRITICAL] g_thread_event_wait_timeout() failed"});
}

struct DeadlineRow {
  const char* name;
  int64_t seconds, microseconds;
  int timeout;
  int64_t deadline_seconds, deadline_nanoseconds;
};

class EventDeadline : public ::testing::TestWithParam<DeadlineRow> {};

TEST_P(EventDeadline, IsTheWallClockPlusTheTimeout) {
  reset();
  const DeadlineRow& row = GetParam();
  LogCapture log;
  FakeClock clock(row.seconds, row.microseconds);
  GThreadEvent* const event = g_thread_event_new();
  timed_wait.result = ETIMEDOUT;
  EXPECT_EQ(wait_and_wake(event, row.timeout), 0);
  EXPECT_EQ(timed_wait.seconds, row.deadline_seconds);
  EXPECT_EQ(timed_wait.nanoseconds, row.deadline_nanoseconds);
  EXPECT_EQ(log.take(), Lines{});
  reset();
  g_thread_event_free(event);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, EventDeadline,
    ::testing::Values(DeadlineRow{"Zero", 100, 7, 0, 100, 7000},
                      DeadlineRow{"SecondAndAHalf", 100, 400000, 1500, 101, 900000000},
                      DeadlineRow{"CarriesOver", 100, 999999, 999, 101, 998999000},
                      DeadlineRow{"CarriesOverByALittle", 100, 500001, 500, 101, 1000},
                      DeadlineRow{"BelowTheBoundary", 100, 499999, 500, 100, 999999000},
                      DeadlineRow{"BoundaryIsNotCarried", 100, 500000, 500, 100,
                                  1000000000},
                      DeadlineRow{"Negative", 100, 999000, -1500, 99, 499000000},
                      DeadlineRow{"NegativeBelowZero", 100, 100000, -500, 100, -400000000},
                      DeadlineRow{"Longest", 100, 0, 2147483647, 2147583, 647000000},
                      DeadlineRow{"After2038", test::kLastSecondOf32Bits, 900000, 200,
                                  test::kLastSecondOf32Bits + 1, 100000000}),
    [](const auto& row) { return row.param.name; });

// With the real timed wait: the system refuses a whole second of nanoseconds.
TEST_F(Event, DeadlineOfExactlyAFullSecondIsRefusedAndLogged) {
  LogCapture log;
  FakeClock clock(100, 500000);
  EXPECT_EQ(wait_and_wake(event, 500), 0);
  EXPECT_EQ(timed_wait.calls.load(), 1);
  EXPECT_EQ(log.take(),
            Lines{"g_thread:#: [CRITICAL] g_thread_event_wait_timeout() failed"});
}

TEST_F(Event, NegativeTimeoutBelowTheSecondIsRefusedAndLogged) {
  LogCapture log;
  FakeClock clock(100, 0);
  EXPECT_EQ(wait_and_wake(event, -1), 0);
  EXPECT_EQ(log.take(),
            Lines{"g_thread:#: [CRITICAL] g_thread_event_wait_timeout() failed"});
}

TEST_F(Event, UnreadableClockCountsAsADeadlineLongPast) {
  LogCapture log;
  FakeClock clock(100, 0);
  clock.fail();
  EXPECT_EQ(wait_and_wake(event, 5), 0);
  EXPECT_EQ(timed_wait.seconds, 0);
  EXPECT_EQ(timed_wait.nanoseconds, 5'000'000);
  EXPECT_EQ(log.take(), Lines{});
}

// Each kind of waiter is cancelled while it waits; the event's mutex must be free then.
TEST_F(Event, CancelledWaiterLeavesTheEventUsable) {
  GThreadFunc const waits[] = {[](void* arg) -> void* {
                                 g_thread_event_wait(static_cast<GThreadEvent*>(arg));
                                 return nullptr;
                               },
                               [](void* arg) -> void* {
                                 g_thread_event_wait_timeout(
                                     static_cast<GThreadEvent*>(arg), 1);
                                 return nullptr;
                               }};
  for (const GThreadFunc wait : waits) {
    untimed_waits = 0;
    GThread* const thread = g_thread_create(wait, event, "waiter");
    until_waiting(1);
    g_thread_cancel(thread);
    g_thread_wait(thread);
    EXPECT_EQ(g_thread_event_signal(event), 0);  // would hang if the lock were still held
  }
}

TEST_F(Event, CancelledInTheTimedWaitLeavesTheEventUsable) {
  GThread* const thread = g_thread_create(
      [](void* arg) -> void* {
        g_thread_event_wait_timeout(static_cast<GThreadEvent*>(arg), 1'000'000);
        return nullptr;
      },
      event, "waiter");
  while (timed_wait.calls < 1) std::this_thread::sleep_for(1ms);
  g_thread_cancel(thread);
  g_thread_wait(thread);
  EXPECT_EQ(untimed_waits.load(), 0);
  EXPECT_EQ(g_thread_event_signal(event), 0);
}

}  // namespace
