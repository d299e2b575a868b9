// The timer service, pass by pass: the program replaces the sleep between two passes, so a
// test lets the service scan exactly as often as it wants, at the time it sets.
//
// SPDX-License-Identifier: MIT

#include <groundwork/timer.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/fake_clock.h"
#include "support/gate.h"
#include "support/library_sleep.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using test::AllocationFaults;
using test::check_line;
using test::FakeClock;
using test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

test::Gate gate;  // where the service's thread waits between two passes; open, it sleeps
std::atomic<bool> creation_fails{false};
std::atomic<int> detached_threads{0};
std::function<void()> on_created;  // called before pthread_create() returns

}  // namespace

extern "C" int LIBRARY_SELECT(int count, fd_set* read, fd_set* write, fd_set* except,
                              LibraryTimeval* time) {
  if (time->tv_sec == 0 && time->tv_usec == 10000 && gate.stop_here()) return 0;
  static auto* const function = NEXT_OF(LIBRARY_SELECT);
  return function(count, read, write, except, time);
}

extern "C" int pthread_create(pthread_t* id, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* arg) noexcept {
  if (creation_fails) return 11;  // EAGAIN
  static auto* const function =
      test::next_function<decltype(pthread_create)>("pthread_create");
  const int result = function(id, attributes, start, arg);
  if (on_created) on_created();
  return result;
}

extern "C" int pthread_detach(pthread_t id) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_detach)>("pthread_detach");
  ++detached_threads;
  return function(id);
}

namespace {

int service_pid() {
  return __atomic_load_n(&g_timer_pid, __ATOMIC_RELAXED);
}

// What the service printed since the last call, with "g_timer:<line> pid=<own pid> " cut.
// Standard output goes to one file all the time: its thread prints when it likes.
class Output {
 public:
  Output() : file_(std::tmpfile()), own_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    dup2(fileno(file_), STDOUT_FILENO);
  }

  // Failure reports come here, too, so what is left goes to standard error.
  ~Output() {
    std::fputs(new_text().c_str(), stderr);
    dup2(own_, STDOUT_FILENO);
    close(own_);
    std::fclose(file_);
  }

  Lines take() {
    std::istringstream text(new_text());
    Lines lines;
    const std::string pid = " pid=" + std::to_string(getpid()) + " ";
    for (std::string line; std::getline(text, line);) {
      const size_t at = line.find(pid);
      if (line.rfind("g_timer:", 0) != 0 || at == std::string::npos || at == 8 ||
          line.find_first_not_of("0123456789", 8) != at) {
        ADD_FAILURE() << "not a line of the service: " << line;
        continue;
      }
      lines.push_back(line.substr(at + pid.size()));
    }
    return lines;
  }

 private:
  std::string new_text() {
    std::fflush(stdout);
    std::string text;
    char piece[512];
    for (ssize_t count; (count = pread(fileno(file_), piece, sizeof piece, taken_)) > 0;) {
      text.append(piece, static_cast<size_t>(count));
      taken_ += static_cast<off_t>(count);
    }
    return text;
  }

  std::FILE* const file_;
  const int own_;
  off_t taken_ = 0;
};

std::string quit_line() {
  return "timer thead=" + std::to_string(getpid()) + " quit";
}

// The fields of a timer's record.
struct Record {
  uint32_t interval;
  GTimerCallback callback;
  void* param;
  uint32_t last;
  Record* next;
};

const Record& record_of(const GTimerEntry* id) {
  return *reinterpret_cast<const Record*>(id);
}

constexpr int64_t kStart = 1'700'000'000;

// The service, stopped at the gate, with the ticks and the clock standing still.
class Timer : public ::testing::Test {
 protected:
  Timer() {
    gate.close();
    g_start_ticks();
    g_get_ticks();
    EXPECT_EQ(g_timer_init(), 0);
    gate.await_arrival();
    log.take();  // of a pass before the lock existed
    EXPECT_EQ(output.take(), Lines{});
  }

  ~Timer() override {
    g_set_timer(0, nullptr);  // their parameters are gone
    gate.open();
    g_timer_cleanup();
  }

  void pass_at(uint32_t milliseconds) {
    clock.set(kStart + milliseconds / 1000, milliseconds % 1000 * 1000);
    gate.pass();
  }

  LogCapture log;
  Output output;
  FakeClock clock{kStart};
};

// A timer's callback with a plan: what each call returns, and what it does.
struct Plan {
  std::vector<uint32_t> results;  // the last one is repeated
  std::function<void()> action = {};
  std::atomic<int> calls{0};
  std::atomic<uint32_t> interval{0};

  static uint32_t run(uint32_t interval, void* param) {
    auto* const plan = static_cast<Plan*>(param);
    const auto call = static_cast<size_t>(plan->calls++);
    plan->interval = interval;
    if (plan->action) plan->action();
    return plan->results[std::min(call, plan->results.size() - 1)];
  }
};

TEST(TimerService, LivesFromInitToCleanup) {
  Output output;
  LogCapture log;
  EXPECT_EQ(service_pid(), 0);
  EXPECT_EQ(g_timer_init(), 0);
  while (service_pid() == 0) std::this_thread::yield();
  EXPECT_EQ(service_pid(), getpid());
  EXPECT_EQ(output.take(), Lines{});
  g_timer_cleanup();
  EXPECT_EQ(service_pid(), 0);
  EXPECT_EQ(output.take(), (Lines{"g_timer_enable(0)", quit_line()}));
}

TEST(TimerService, ReservedDataIsZero) {
  EXPECT_EQ(g_alarm_interval, 0u);
  EXPECT_EQ(g_alarm_callback, nullptr);
}

TEST(TimerService, RunsInRealTime) {
  Output output;
  LogCapture log;
  g_start_ticks();
  ASSERT_EQ(g_timer_init(), 0);
  Plan plan{{20}};
  const auto begin = std::chrono::steady_clock::now();
  g_add_timer(20, Plan::run, &plan);
  while (plan.calls < 4) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  // The first may come 10 ms early, the others keep its phase.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
  g_timer_cleanup();
}

TEST(TimerService, CanBeInitialisedAgainAndAgain) {
  test::warm_up_threads();
  LogCapture log;
  Output output;
  AllocationFaults faults(0);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(g_timer_init(), 0);
    EXPECT_NE(g_add_timer(1000, nullptr, nullptr), nullptr);
    g_timer_cleanup();
  }
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(TimerService, CleanupWithoutServiceReportsTheMissingThreadAndLock) {
  LogCapture log;
  Output output;
  g_timer_cleanup();
  EXPECT_EQ(output.take(), Lines{"g_timer_enable: not running"});
  const std::string missing = check_line("g_thread", "mutex != NULL");
  EXPECT_EQ(log.take(), (Lines{missing, missing, missing}));  // lock, unlock, free
}

TEST(TimerService, DisablingWithoutThreadSaysSo) {
  Output output;
  EXPECT_EQ(g_timer_enable(0), 0);
  EXPECT_EQ(output.take(), Lines{"g_timer_enable: not running"});
}

TEST(TimerService, AddingBeforeInitIsRefused) {
  Output output;
  Plan plan{{0}};
  EXPECT_EQ(g_add_timer(1, Plan::run, &plan), nullptr);
  EXPECT_EQ(g_add_timer_ex(100, Plan::run, &plan), nullptr);
  const std::string line = "you must call g_init(g_init_timer) first";
  EXPECT_EQ(output.take(), (Lines{line, line}));
}

TEST(TimerService, SettingATimerBeforeInitReportsTheMissingLockAndWorks) {
  LogCapture log;
  Output output;
  const std::string missing = check_line("g_thread", "mutex != NULL");
  AllocationFaults faults(0);
  EXPECT_EQ(g_set_timer(100, [](uint32_t interval, void*) { return interval; }), 0);
  faults.disarm();
  EXPECT_EQ(log.take(), (Lines{missing, missing}));
  EXPECT_EQ(faults.outstanding(), 1);
  EXPECT_EQ(g_set_timer(0, nullptr), 0);
  EXPECT_EQ(log.take(), (Lines{missing, missing}));
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(g_remove_timer(nullptr), 0);
  EXPECT_EQ(log.take(), (Lines{missing, missing}));
}

TEST(TimerService, TimerSetBeforeInitFiresWithoutALock) {
  LogCapture log(99);
  Output output;
  static std::atomic<int> calls;
  calls = 0;
  EXPECT_EQ(g_set_timer(10,
                        [](uint32_t interval, void*) {
                          ++calls;
                          return interval;
                        }),
            0);
  EXPECT_EQ(g_timer_enable(1), 0);
  while (calls < 2) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  g_timer_cleanup();
}

TEST(TimerService, EachPassWithoutALockReportsItTwice) {
  LogCapture log;
  Output output;
  gate.close();
  EXPECT_EQ(g_timer_enable(1), 0);
  gate.await_arrival();
  gate.pass();  // now the thread's handle is stored
  log.take();
  gate.pass();
  const std::string missing = check_line("g_thread", "mutex != NULL");
  EXPECT_EQ(log.take(), (Lines{missing, missing}));  // lock and unlock
  gate.open();
  g_timer_cleanup();
}

TEST(TimerService, InitAfterEnablingIsRefusedAndMakesNoLock) {
  LogCapture log;
  Output output;
  EXPECT_EQ(g_timer_enable(1), 0);
  EXPECT_EQ(g_timer_init(), -1);
  EXPECT_EQ(g_add_timer(100, nullptr, nullptr), nullptr);
  EXPECT_EQ(output.take(), (Lines{"*ERR* g_timer_init fail: thread runnin",
                                  "you must call g_init(g_init_timer) first"}));
  g_timer_cleanup();
}

TEST(TimerService, ThreadLeavesTheTimersAloneUntilItsHandleIsStored) {
  LogCapture log;
  Output output;
  gate.close();
  on_created = [] {
    gate.await_arrival();
    gate.pass();
  };
  EXPECT_EQ(g_timer_init(), 0);
  on_created = {};
  EXPECT_EQ(log.take(), Lines{});  // a pass would have reported the missing lock
  EXPECT_EQ(output.take(), Lines{});
  gate.open();
  g_timer_cleanup();
}

TEST(TimerService, ReservedDataIsLeftAlone) {
  LogCapture log;
  Output output;
  static int calls;
  calls = 0;
  g_alarm_interval = 5;
  g_alarm_callback = [](uint32_t, void*) { return static_cast<uint32_t>(++calls); };
  const GTimerCallback callback = g_alarm_callback;
  g_start_ticks();
  EXPECT_EQ(g_timer_init(), 0);
  Plan plan{{0}};
  g_add_timer(10, Plan::run, &plan);
  while (plan.calls == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  g_timer_cleanup();
  EXPECT_EQ(g_alarm_interval, 5u);
  EXPECT_EQ(g_alarm_callback, callback);
  EXPECT_EQ(calls, 0);
  g_alarm_interval = 0;
  g_alarm_callback = nullptr;
}

TEST(TimerService, FailedAllocationsAreSurvived) {
  test::warm_up_threads();
  LogCapture log(99);
  Output output;
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    const int result = g_timer_init();
    const bool has_thread = faults.failures() == 0;
    faults.disarm();
    if (result == 0) {
      EXPECT_EQ(g_timer_init(), -1);
    } else {
      EXPECT_FALSE(has_thread);
    }
    g_timer_cleanup();
  });
}

TEST(TimerService, InitFailsWithoutMemoryForTheThreadAndStillMakesTheLock) {
  LogCapture log;
  Output output;
  {
    AllocationFaults faults(1);
    EXPECT_EQ(g_timer_init(), -1);
  }
  EXPECT_NE(g_add_timer(100, nullptr, nullptr), nullptr);
  EXPECT_EQ(output.take(), Lines{"WARNING timer is not running"});
  EXPECT_EQ(g_timer_enable(1), 0);
  g_timer_cleanup();
}

TEST(TimerService, ThreadThatCannotStartCountsAsRunning) {
  LogCapture log;
  Output output;
  creation_fails = true;
  EXPECT_EQ(g_timer_init(), 0);
  creation_fails = false;
  EXPECT_EQ(g_timer_init(), -1);
  output.take();
  g_timer_cleanup();
  EXPECT_EQ(output.take(), Lines{"g_timer_enable(0)"});
}

TEST_F(Timer, SecondInitIsRefused) {
  EXPECT_EQ(g_timer_init(), -1);
  EXPECT_EQ(output.take(), Lines{"*ERR* g_timer_init fail: thread runnin"});
}

TEST_F(Timer, EnablingTwiceDoesNothing) {
  AllocationFaults faults(0);
  EXPECT_EQ(g_timer_enable(1), 0);
  EXPECT_EQ(g_timer_enable(-5), 0);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 0);
  EXPECT_EQ(output.take(), Lines{});
}

TEST_F(Timer, KeepsItsTimersWhileDisabled) {
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  gate.open();
  EXPECT_EQ(g_timer_enable(0), 0);
  EXPECT_EQ(output.take(), (Lines{"g_timer_enable(0)", quit_line()}));
  EXPECT_EQ(service_pid(), 0);
  clock.advance(1000);
  EXPECT_EQ(plan.calls.load(), 0);
  gate.close();
  EXPECT_EQ(g_timer_enable(1), 0);
  gate.await_arrival();
  gate.pass();
  EXPECT_EQ(plan.calls.load(), 1);
}

TEST_F(Timer, InitAfterDisablingGoesOnWithTheSameLock) {
  gate.open();
  g_timer_enable(0);
  gate.close();
  AllocationFaults faults(0);
  EXPECT_EQ(g_timer_init(), 0);
  faults.disarm();
  for (int i = 1; i <= faults.calls(); ++i) {
    EXPECT_NE(test::allocation_size(i), sizeof(pthread_mutex_t));
  }
  gate.await_arrival();
}

TEST_F(Timer, AddingWhileDisabledWarnsAndAdds) {
  gate.open();
  g_timer_enable(0);
  output.take();
  EXPECT_NE(g_add_timer(100, nullptr, nullptr), nullptr);
  EXPECT_EQ(output.take(), Lines{"WARNING timer is not running"});
  EXPECT_NE(g_add_timer(5, nullptr, nullptr), nullptr);
  EXPECT_EQ(output.take(), (Lines{"**WARNING** g_add_timer interval=5 < 10",
                                  "WARNING timer is not running"}));
}

TEST_F(Timer, IntervalBelowTheResolutionWarnsAndAddsTenMilliseconds) {
  Plan plan{{0}};
  EXPECT_NE(g_add_timer(5, Plan::run, &plan), nullptr);
  EXPECT_EQ(output.take(), Lines{"**WARNING** g_add_timer interval=5 < 10"});
  pass_at(10);
  EXPECT_EQ(plan.calls.load(), 1);
  EXPECT_EQ(plan.interval.load(), 10u);
  EXPECT_NE(g_add_timer_ex(-7, Plan::run, &plan), nullptr);
  EXPECT_EQ(output.take(), Lines{"**WARNING** g_add_timer interval=-7 < 10"});
}

TEST_F(Timer, IntervalIsRoundedUpToTheResolution) {
  struct Row {
    int interval;
    uint32_t rounded;
  };
  for (const Row& row : {Row{0, 0}, Row{1, 10}, Row{9, 10}, Row{10, 10}, Row{11, 20},
                         Row{15, 20}, Row{20, 20}, Row{100, 100}, Row{101, 110}, Row{-5, 0},
                         Row{-9, 0}, Row{-19, 4294967286u}, Row{2147483638, 2147483640u},
                         Row{2147483647, 2147483656u}}) {
    const GTimerEntry* const id = g_add_timer(row.interval, nullptr, nullptr);
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(record_of(id).interval, row.rounded) << row.interval;
    Lines expected;
    if (row.interval < 10) {
      expected.push_back(
          "**WARNING** g_add_timer interval=" + std::to_string(row.interval) + " < 10");
    }
    EXPECT_EQ(output.take(), expected);
  }
}

TEST_F(Timer, RecordHoldsTheTimerAndLinksToTheOlderOne) {
  Plan plan{{0}};
  AllocationFaults faults(0);
  GTimerEntry* const older = g_add_timer(100, Plan::run, &plan);
  faults.disarm();
  EXPECT_EQ(test::allocation_size(1), sizeof(Record));
  clock.advance(3);
  GTimerEntry* const newer = g_add_timer_ex(50, Plan::run, &clock);
  const Record& record = record_of(newer);
  EXPECT_EQ(record.interval, 50u);
  EXPECT_EQ(record.callback, Plan::run);
  EXPECT_EQ(record.param, &clock);
  EXPECT_EQ(record.last - record_of(older).last, 3u);
  EXPECT_EQ(record.next, &record_of(older));
  EXPECT_EQ(record_of(older).param, &plan);
  EXPECT_EQ(record_of(older).next, nullptr);
}

TEST_F(Timer, ExhaustedHeapGivesNullAndChangesNothing) {
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  AllocationFaults faults(1);
  GTimerEntry* const id = g_add_timer(100, Plan::run, &plan);
  faults.disarm();
  EXPECT_EQ(id, nullptr);
  pass_at(100);
  EXPECT_EQ(plan.calls.load(), 1);
}

TEST_F(Timer, IsDueLessThanTenMillisecondsEarly) {
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  pass_at(90);
  EXPECT_EQ(plan.calls.load(), 0);
  pass_at(91);
  EXPECT_EQ(plan.calls.load(), 1);
}

TEST_F(Timer, SlightlyEarlyCallKeepsThePhase) {
  Plan plan{{100}};
  const GTimerEntry* const id = g_add_timer(100, Plan::run, &plan);
  const uint32_t start = record_of(id).last;
  pass_at(95);
  EXPECT_EQ(record_of(id).last, start + 100);
  pass_at(190);
  EXPECT_EQ(plan.calls.load(), 1);
  pass_at(191);
  EXPECT_EQ(plan.calls.load(), 2);
  EXPECT_EQ(record_of(id).last, start + 200);
}

TEST_F(Timer, CallExactlyOnTimeStartsFromNow) {
  Plan plan{{100}};
  const GTimerEntry* const id = g_add_timer(100, Plan::run, &plan);
  const uint32_t start = record_of(id).last;
  pass_at(100);
  EXPECT_EQ(record_of(id).last, start + 100);
}

TEST_F(Timer, LateCallStartsAfreshAndDropsWhatItMissed) {
  Plan plan{{100}};
  const GTimerEntry* const id = g_add_timer(100, Plan::run, &plan);
  const uint32_t start = record_of(id).last;
  pass_at(357);
  EXPECT_EQ(plan.calls.load(), 1);
  EXPECT_EQ(record_of(id).last, start + 357);
  pass_at(447);
  EXPECT_EQ(plan.calls.load(), 1);
  pass_at(448);
  EXPECT_EQ(plan.calls.load(), 2);
}

TEST_F(Timer, PassBeforeAnEarlyTimersNewPeriodCountsAsFarPastIt) {
  // The interval being timed begins at 100, so at 96 a wrapped, huge time has elapsed.
  Plan plan{{100}};
  const GTimerEntry* const id = g_add_timer(100, Plan::run, &plan);
  const uint32_t start = record_of(id).last;
  pass_at(95);
  pass_at(96);
  EXPECT_EQ(plan.calls.load(), 2);
  EXPECT_EQ(record_of(id).last, start + 96);
}

TEST_F(Timer, TimeIsReadOnceInAPass) {
  Plan later{{100}};
  Plan slow{{100}, [&] { clock.advance(50); }};
  const GTimerEntry* const id = g_add_timer(100, Plan::run, &later);
  const GTimerEntry* const late = g_add_timer(140, Plan::run, &later);
  g_add_timer(100, Plan::run, &slow);
  const uint32_t start = record_of(id).last;
  pass_at(100);
  EXPECT_EQ(slow.calls.load(), 1);
  EXPECT_EQ(later.calls.load(), 1);
  EXPECT_EQ(record_of(id).last, start + 100);
  EXPECT_EQ(record_of(late).last, start);
}

TEST_F(Timer, ZeroIntervalNeverFires) {
  Plan plan{{0}};
  g_add_timer(0, Plan::run, &plan);
  g_add_timer(-5, Plan::run, &plan);
  for (uint32_t at = 0; at <= 200000; at += 20000) pass_at(at);
  EXPECT_EQ(plan.calls.load(), 0);
}

// At an interval of 0 only a clock that was set back by less than 10 ms makes a timer due.
// That its result equals the interval is noticed before that it is 0.
TEST_F(Timer, ZeroIntervalThatFiresAndReturnsZeroStays) {
  Plan plan{{0}};
  GTimerEntry* const id = g_add_timer(0, Plan::run, &plan);
  for (int64_t back = 1; back <= 9; ++back) {
    clock.advance(-1);
    gate.pass();
    EXPECT_EQ(plan.calls.load(), 1);
    plan.calls = 0;
    gate.pass();  // not due again until the clock is set back once more
    EXPECT_EQ(plan.calls.load(), 0);
  }
  EXPECT_EQ(record_of(id).interval, 0u);
  EXPECT_EQ(g_remove_timer(id), 1);
}

TEST_F(Timer, NullCallbackNeverFires) {
  g_add_timer(10, nullptr, nullptr);
  pass_at(10);
  g_set_timer(10, nullptr);
  pass_at(20);
  pass_at(30);
  EXPECT_EQ(output.take(), Lines{});
}

TEST_F(Timer, CallbackThatReturnsZeroIsCalledOnceAndFreed) {
  Plan plan{{0}};
  AllocationFaults faults(0);
  GTimerEntry* const id = g_add_timer(10, Plan::run, &plan);
  faults.disarm();
  pass_at(10);
  pass_at(20);
  EXPECT_EQ(plan.calls.load(), 1);
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(g_remove_timer(id), 0);
}

TEST_F(Timer, CallbackChoosesItsNextInterval) {
  Plan plan{{25, 30, 0xffffffffu}};
  const GTimerEntry* const id = g_add_timer(10, Plan::run, &plan);
  pass_at(10);
  EXPECT_EQ(record_of(id).interval, 30u);
  pass_at(30);
  EXPECT_EQ(plan.calls.load(), 1);
  pass_at(40);
  EXPECT_EQ(plan.calls.load(), 2);
  EXPECT_EQ(plan.interval.load(), 30u);
  EXPECT_EQ(record_of(id).interval, 30u);
  pass_at(70);
  // Rounding up the largest number wraps to zero: the timer stays and sleeps for ever.
  EXPECT_EQ(record_of(id).interval, 0u);
  pass_at(20000);
  EXPECT_EQ(plan.calls.load(), 3);
}

TEST_F(Timer, NewestTimerIsCalledFirst) {
  std::string order;
  Plan a{{100}, [&] { order += 'a'; }};
  Plan b{{100}, [&] { order += 'b'; }};
  Plan c{{100}, [&] { order += 'c'; }};
  for (Plan* const plan : {&a, &b, &c}) g_add_timer(100, Plan::run, plan);
  pass_at(100);
  EXPECT_EQ(order, "cba");
}

TEST_F(Timer, RemovalByResultDoesNotEndThePass) {
  std::string order;
  Plan a{{100}, [&] { order += 'a'; }};
  Plan b{{0}, [&] { order += 'b'; }};
  Plan c{{0}, [&] { order += 'c'; }};
  Plan d{{100}, [&] { order += 'd'; }};
  for (Plan* const plan : {&a, &b, &c, &d}) g_add_timer(100, Plan::run, plan);
  pass_at(100);
  EXPECT_EQ(order, "dcba");
  pass_at(200);
  EXPECT_EQ(order, "dcbada");
}

TEST_F(Timer, AddingInACallbackEndsThePass) {
  std::string order;
  Plan added{{0}, [&] { order += 'n'; }};
  Plan a{{100}, [&] { order += 'a'; }};
  Plan b{{100}, [&] {
           order += 'b';
           if (b.calls == 1) g_add_timer(500, Plan::run, &added);
         }};
  g_add_timer(100, Plan::run, &a);
  g_add_timer(100, Plan::run, &b);
  pass_at(100);
  EXPECT_EQ(order, "b");
  pass_at(100);
  EXPECT_EQ(order, "ba");
}

TEST_F(Timer, ResultOfACallbackThatChangedTheListIsIgnored) {
  Plan plan{{0, 0}, [&] { g_add_timer(5000, nullptr, nullptr); }};
  const GTimerEntry* const id = g_add_timer(100, Plan::run, &plan);
  pass_at(100);
  EXPECT_EQ(plan.calls.load(), 1);
  EXPECT_EQ(record_of(id).interval, 100u);
  pass_at(200);
  EXPECT_EQ(plan.calls.load(), 2);
}

TEST_F(Timer, RemovingInACallbackEndsThePass) {
  std::string order;
  GTimerEntry* ids[3];
  Plan a{{100}, [&] { order += 'a'; }};
  Plan b{{100}, [&] {
           order += 'b';
           EXPECT_EQ(g_remove_timer(ids[1]), 1);  // itself
         }};
  Plan c{{100}, [&] { order += 'c'; }};
  ids[0] = g_add_timer(100, Plan::run, &a);
  ids[1] = g_add_timer(100, Plan::run, &b);
  ids[2] = g_add_timer(100, Plan::run, &c);
  pass_at(100);
  EXPECT_EQ(order, "cb");
  pass_at(100);
  EXPECT_EQ(order, "cba");
}

TEST_F(Timer, ReplacingAllInACallbackEndsThePass) {
  static std::atomic<int> calls;
  calls = 0;
  Plan a{{100}};
  Plan b{{100}, [&] {
           g_set_timer(50, [](uint32_t interval, void*) {
             ++calls;
             return interval;
           });
         }};
  g_add_timer(100, Plan::run, &a);
  g_add_timer(100, Plan::run, &b);
  pass_at(100);
  pass_at(150);
  EXPECT_EQ(a.calls.load(), 0);
  EXPECT_EQ(b.calls.load(), 1);
  EXPECT_EQ(calls.load(), 1);
}

TEST_F(Timer, ClearingInACallbackEndsThePass) {
  Plan a{{100}};
  Plan b{{0}, [] { EXPECT_EQ(g_set_timer(0, nullptr), 0); }};
  AllocationFaults faults(0);
  g_add_timer(100, Plan::run, &a);
  g_add_timer(100, Plan::run, &b);
  faults.disarm();
  pass_at(100);
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(a.calls.load(), 0);
  EXPECT_EQ(b.calls.load(), 1);
}

TEST_F(Timer, ChangeByAnotherThreadDuringACallbackEndsThePass) {
  Plan a{{100}};
  Plan b{{100}, [] {
           // The lock is free meanwhile, or this would hang.
           std::thread([] { g_add_timer(5000, nullptr, nullptr); }).join();
         }};
  g_add_timer(100, Plan::run, &a);
  g_add_timer(100, Plan::run, &b);
  pass_at(100);
  EXPECT_EQ(a.calls.load(), 0);
  pass_at(100);
  EXPECT_EQ(a.calls.load(), 1);
}

TEST_F(Timer, RemovingAnUnknownIdSaysSo) {
  GTimerEntry* const id = g_add_timer(100, nullptr, nullptr);
  g_add_timer(100, nullptr, nullptr);
  EXPECT_EQ(g_remove_timer(id), 1);
  EXPECT_EQ(output.take(), Lines{});
  EXPECT_EQ(g_remove_timer(id), 0);
  EXPECT_EQ(g_remove_timer(nullptr), 0);
  const auto text = [](void* of) {  // the C library writes a null pointer in its own way
    char line[64];
    std::snprintf(line, sizeof line, "g_remove_timer: *ERR* id=%p not found", of);
    return std::string(line);
  };
  EXPECT_EQ(output.take(), (Lines{text(id), text(nullptr)}));
#ifdef __GLIBC__
  EXPECT_EQ(text(nullptr), "g_remove_timer: *ERR* id=(nil) not found");
#endif
}

// The ids in the order of the list, from the newest on.
std::vector<const void*> ids_from(const GTimerEntry* newest) {
  std::vector<const void*> ids;
  const Record* record = newest != nullptr ? &record_of(newest) : nullptr;
  for (; record != nullptr; record = record->next) ids.push_back(record);
  return ids;
}

TEST_F(Timer, ManyAreRemovedInAnyOrderAndTheOthersKeepTheirs) {
  std::mt19937 random(23);
  std::vector<GTimerEntry*> timers;  // newest first
  for (int round = 0; round < 4; ++round) {
    for (int i = 0; i < 500; ++i) {
      timers.insert(timers.begin(), g_add_timer(1000, nullptr, nullptr));
    }
    while (timers.size() > 40u * static_cast<unsigned>(3 - round)) {
      const size_t index = random() % 3 == 0   ? 0
                           : random() % 2 == 0 ? timers.size() - 1
                                               : random() % timers.size();
      GTimerEntry* const id = timers[index];
      ASSERT_EQ(g_remove_timer(id), 1);
      timers.erase(timers.begin() + static_cast<ptrdiff_t>(index));
      ASSERT_EQ(g_remove_timer(id), 0);
      if (timers.empty() || timers.size() % 7 != 0) continue;
      ASSERT_EQ(ids_from(timers.front()),
                std::vector<const void*>(timers.begin(), timers.end()));
    }
    output.take();
  }
  EXPECT_EQ(g_add_timer(1000, nullptr, nullptr) != nullptr, true);
}

TEST_F(Timer, IdsThatAreNoneAreOnlyCompared) {
  std::vector<GTimerEntry*> timers;
  for (int i = 0; i < 300; ++i) timers.push_back(g_add_timer(1000, nullptr, nullptr));
  char elsewhere = 0;
  for (const uintptr_t id :
       {uintptr_t{0}, uintptr_t{1}, uintptr_t{16}, UINTPTR_MAX,
        reinterpret_cast<uintptr_t>(&elsewhere), reinterpret_cast<uintptr_t>(timers[7]) + 1,
        reinterpret_cast<uintptr_t>(timers[7]) + sizeof(void*)}) {
    auto* const pointer = reinterpret_cast<GTimerEntry*>(id);
    EXPECT_EQ(g_remove_timer(pointer), 0);
    char text[64];
    std::snprintf(text, sizeof text, "g_remove_timer: *ERR* id=%p not found",
                  static_cast<void*>(pointer));
    EXPECT_EQ(output.take(), Lines{text});
  }
  for (GTimerEntry* const id : timers) EXPECT_EQ(g_remove_timer(id), 1);
}

// A table finds the ids of many; it goes when they are gone.
TEST_F(Timer, ManyNeedAFewBlocksMoreAndLeakNothing) {
  for (const bool at_once : {false, true}) {
    AllocationFaults faults(0);
    std::vector<GTimerEntry*> timers;
    timers.reserve(1000);
    const int before = faults.outstanding();
    for (int i = 0; i < 64; ++i) timers.push_back(g_add_timer(1000, nullptr, nullptr));
    EXPECT_EQ(faults.outstanding(), before + 64);
    for (int i = 64; i < 1000; ++i) timers.push_back(g_add_timer(1000, nullptr, nullptr));
    EXPECT_EQ(faults.outstanding(), before + 1000 + 1);
    if (at_once) {
      g_set_timer(0, nullptr);
    } else {
      for (GTimerEntry* const id : timers) g_remove_timer(id);
    }
    EXPECT_EQ(faults.outstanding(), before);
    faults.disarm();
  }
}

TEST_F(Timer, WithoutMemoryForTheTableManyAreFoundAllTheSame) {
  std::vector<GTimerEntry*> timers;
  timers.reserve(200);
  for (int i = 0; i < 64; ++i) timers.push_back(g_add_timer(1000, nullptr, nullptr));
  for (int i = 0; i < 10; ++i) {
    AllocationFaults faults(2);  // the first is the timer itself
    timers.push_back(g_add_timer(1000, nullptr, nullptr));
    faults.disarm();
    ASSERT_EQ(faults.failures(), 1);
    ASSERT_NE(timers.back(), nullptr);
  }
  EXPECT_EQ(g_remove_timer(timers[70]), 1);
  EXPECT_EQ(g_remove_timer(timers[70]), 0);
  timers.erase(timers.begin() + 70);
  output.take();
  for (int i = 0; i < 100; ++i) timers.push_back(g_add_timer(1000, nullptr, nullptr));
  for (GTimerEntry* const id : timers) EXPECT_EQ(g_remove_timer(id), 1);
  EXPECT_EQ(output.take(), Lines{});
}

// Its own id and those around it, while the pass goes on.
TEST_F(Timer, OneOfManyThatReturnsZeroIsRemovedAndThePassGoesOn) {
  std::vector<Plan> plans(200);
  for (size_t i = 0; i < plans.size(); ++i) {
    plans[i].results = {i % 3 == 0 ? 0u : 100u};
  }
  std::vector<GTimerEntry*> ids;
  for (Plan& plan : plans) ids.push_back(g_add_timer(100, Plan::run, &plan));
  pass_at(100);
  pass_at(200);
  for (size_t i = 0; i < plans.size(); ++i) {
    EXPECT_EQ(plans[i].calls.load(), i % 3 == 0 ? 1 : 2) << i;
    EXPECT_EQ(g_remove_timer(ids[i]), i % 3 == 0 ? 0 : 1) << i;
  }
  output.take();
}

struct SingleCall {
  uint32_t interval;
  void* param;
};
std::vector<SingleCall> single_calls;

uint32_t note_single(uint32_t interval, void* param) {
  single_calls.push_back({interval, param});
  return single_calls.size() < 2 ? 35 : 0;
}

TEST_F(Timer, SetTimerReplacesAllTimers) {
  single_calls.clear();
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  g_add_timer(200, Plan::run, &plan);
  EXPECT_EQ(g_set_timer(95, note_single), 0);
  pass_at(100);
  pass_at(140);
  pass_at(180);
  pass_at(500);
  EXPECT_EQ(plan.calls.load(), 0);
  ASSERT_EQ(single_calls.size(), 2u);
  EXPECT_EQ(single_calls[0].interval, 100u);
  EXPECT_EQ(single_calls[1].interval, 40u);
  // The callback is its own parameter.
  EXPECT_EQ(single_calls[0].param, reinterpret_cast<void*>(note_single));
  EXPECT_EQ(output.take(), Lines{});
}

TEST_F(Timer, SetTimerWithZeroLeavesNone) {
  Plan plan{{100}};
  AllocationFaults faults(0);
  for (int i = 0; i < 5; ++i) g_add_timer(100, Plan::run, &plan);
  EXPECT_EQ(g_set_timer(0, nullptr), 0);
  EXPECT_EQ(g_set_timer(0, note_single), 0);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  pass_at(100);
  EXPECT_EQ(plan.calls.load(), 0);
}

TEST_F(Timer, SetTimerWithoutMemoryReturnsMinusOneWithThePreviousTimersGone) {
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  AllocationFaults faults(1);
  const int result = g_set_timer(50, note_single);
  faults.disarm();
  EXPECT_EQ(result, -1);
  pass_at(100);
  EXPECT_EQ(plan.calls.load(), 0);
}

TEST_F(Timer, StepOfTheClockNeitherStormsNorStops) {
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  pass_at(60000);  // a minute forward counts as ten milliseconds
  EXPECT_EQ(plan.calls.load(), 0);
  pass_at(60100);
  EXPECT_EQ(plan.calls.load(), 1);
  clock.set(kStart - 3600);
  gate.pass();
  clock.advance(100);
  gate.pass();
  EXPECT_EQ(plan.calls.load(), 2);
}

TEST_F(Timer, RunsThroughTheEndOf32BitTime) {
  clock.set(test::kLastSecondOf32Bits, 950000);
  g_start_ticks();
  g_get_ticks();
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  clock.set(test::kLastSecondOf32Bits + 1, 40000);
  gate.pass();
  EXPECT_EQ(plan.calls.load(), 0);
  clock.set(test::kLastSecondOf32Bits + 1, 50000);
  gate.pass();
  EXPECT_EQ(plan.calls.load(), 1);
}

TEST_F(Timer, RunsThroughTheWrapOfTheTicks) {
  uint32_t ticks = g_get_ticks();
  uint32_t before;
  do {
    before = ticks;
    clock.advance(30000);
    ticks = g_get_ticks();
  } while (ticks > before);
  clock.advance(-static_cast<int64_t>(ticks) - 50);  // 50 ms before the wrap
  ASSERT_EQ(g_get_ticks(), 4294967246u);
  Plan plan{{100}};
  g_add_timer(100, Plan::run, &plan);
  clock.advance(90);
  gate.pass();
  EXPECT_EQ(plan.calls.load(), 0);
  clock.advance(5);
  gate.pass();
  EXPECT_EQ(plan.calls.load(), 1);
}

TEST_F(Timer, CallbackMayStopTheService) {
  Plan plan{{100}, [] { EXPECT_EQ(g_timer_enable(0), 0); }};
  g_add_timer(100, Plan::run, &plan);
  clock.advance(100);
  const int detached = detached_threads;
  gate.pass();
  EXPECT_EQ(detached_threads.load(), detached + 1);  // nobody can wait for the thread
  gate.release();
  while (service_pid() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(output.take(), (Lines{"g_timer_enable(0)", quit_line()}));
  EXPECT_EQ(g_timer_enable(1), 0);
  gate.await_arrival();
}

TEST_F(Timer, CallbackMayCleanUpTheService) {
  Plan after{{100}};
  Plan plan{{100}, [] { g_timer_cleanup(); }};
  AllocationFaults faults(0);
  g_add_timer(100, Plan::run, &after);
  g_add_timer(100, Plan::run, &plan);
  faults.disarm();
  clock.advance(100);
  gate.pass();
  gate.release();
  while (service_pid() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(after.calls.load(), 0);
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(g_add_timer(100, nullptr, nullptr), nullptr);
}

TEST_F(Timer, CallbackMayReplaceItsOwnThread) {
  Plan plan{{100}, [] {
              EXPECT_EQ(g_timer_enable(0), 0);
              EXPECT_EQ(g_timer_enable(1), 0);
            }};
  g_add_timer(100, Plan::run, &plan);
  clock.advance(100);
  gate.pass();
  gate.await_arrival(3);  // the old thread twice, and the new one
  gate.open();
  // One of the two threads ends.
  Lines lines;
  while (lines.size() < 2) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    for (const std::string& line : output.take()) lines.push_back(line);
  }
  EXPECT_EQ(lines, (Lines{"g_timer_enable(0)", quit_line()}));
  // It was not the new one.
  EXPECT_EQ(service_pid(), getpid());
  g_timer_enable(0);
  EXPECT_EQ(output.take(), (Lines{"g_timer_enable(0)", quit_line()}));
  EXPECT_EQ(service_pid(), 0);
}

TEST_F(Timer, CallbackMayEndTheThread) {
  Plan plan{{100}, [&] {
              if (plan.calls == 1) pthread_exit(nullptr);
            }};
  g_add_timer(100, Plan::run, &plan);
  clock.advance(100);
  gate.release();
  while (plan.calls == 0) std::this_thread::yield();
  // The lock is free, and the service can be restarted.
  EXPECT_NE(g_add_timer(5000, nullptr, nullptr), nullptr);
  EXPECT_EQ(g_timer_enable(0), 0);
  gate.close();
  EXPECT_EQ(g_timer_enable(1), 0);
  gate.await_arrival();
  clock.advance(100);
  gate.pass();
  EXPECT_EQ(plan.calls.load(), 2);
}

// A list of timers as the service is to walk it.
class ModelService {
 public:
  struct Entry {
    int id;
    uint32_t interval;
    uint32_t last;
  };

  std::vector<Entry> entries;  // newest first
  uint32_t now = 0;

  void add(int id, uint32_t interval) {
    entries.insert(entries.begin(), {id, (interval + 9) / 10 * 10, now});
  }

  void remove(int id) {
    std::erase_if(entries, [&](const Entry& entry) { return entry.id == id; });
  }

  // The calls of one pass; result_of(id) is each callback's result.
  template <typename ResultOf>
  std::vector<int> scan(ResultOf result_of) {
    std::vector<int> calls;
    for (size_t i = 0; i < entries.size();) {
      Entry& entry = entries[i];
      const uint32_t elapsed = now - entry.last;
      if (elapsed <= entry.interval - 10) {
        ++i;
        continue;
      }
      entry.last = elapsed < entry.interval ? entry.last + entry.interval : now;
      calls.push_back(entry.id);
      const uint32_t result = result_of(entry.id);
      if (result == 0) {
        entries.erase(entries.begin() + static_cast<ptrdiff_t>(i));
        continue;
      }
      if (result != entry.interval) entry.interval = (result + 9) / 10 * 10;
      ++i;
    }
    return calls;
  }
};

struct RandomTimer {
  int id;
  uint32_t result;
  GTimerEntry* entry;
};
std::vector<int> random_calls;

uint32_t run_random(uint32_t, void* param) {
  const auto* const timer = static_cast<RandomTimer*>(param);
  random_calls.push_back(timer->id);
  return timer->result;
}

TEST_F(Timer, RandomOperationsMatchTheModel) {
  std::mt19937 engine(5);
  const auto random = [&] { return static_cast<uint32_t>(engine()); };
  std::map<int, RandomTimer> timers;
  ModelService model;
  int next_id = 0;
  for (int step = 0; step < 1500; ++step) {
    const uint32_t choice = random() % 10;
    if (choice < 3 && timers.size() < 60) {
      const int id = next_id++;
      const uint32_t interval = 10 + random() % 300;
      RandomTimer& timer = timers[id] = {id, interval, nullptr};
      timer.entry = g_add_timer(static_cast<int>(interval), run_random, &timer);
      model.add(id, interval);
    } else if (choice == 3 && !model.entries.empty()) {
      const int id = model.entries[random() % model.entries.size()].id;
      ASSERT_EQ(g_remove_timer(timers[id].entry), 1);
      model.remove(id);
    } else {
      for (auto& [id, timer] : timers) {
        if (random() % 8 == 0) timer.result = random() % 4 == 0 ? 0 : random() % 300;
      }
      const uint32_t advance = random() % 60;
      clock.advance(advance);
      model.now += advance;
      random_calls.clear();
      gate.pass();
      ASSERT_EQ(random_calls, model.scan([&](int id) { return timers[id].result; }));
    }
  }
  EXPECT_EQ(output.take(), Lines{});
}

TEST(TimerThreads, TimersAreSetWithoutALockWhileTheThreadPasses) {
  LogCapture log(99);
  Output output;
  gate.close();
  g_timer_enable(1);
  gate.await_arrival();
  std::atomic<bool> done{false};
  std::thread passes([&] {
    while (!done) gate.pass();
  });
  static std::atomic<long> calls;
  for (int i = 0; i < 3000; ++i) {
    EXPECT_EQ(g_set_timer(10,
                          [](uint32_t interval, void*) {
                            ++calls;
                            return interval;
                          }),
              0);
    if (i % 300 == 0) {
      calls = 0;
      while (calls == 0) std::this_thread::yield();
    }
    EXPECT_EQ(g_set_timer(0, nullptr), 0);
  }
  done = true;
  passes.join();
  const long called = calls;
  gate.pass();
  EXPECT_EQ(calls, called);  // the last one was removed
  gate.open();
  g_timer_cleanup();
}

TEST(TimerThreads, AddRemoveAndReplaceFromManyThreadsWhileItRuns) {
  LogCapture log;
  Output output;
  g_start_ticks();
  ASSERT_EQ(g_timer_init(), 0);
  static std::atomic<long> calls;
  calls = 0;
  const GTimerCallback count = [](uint32_t interval, void*) {
    ++calls;
    return calls % 7 == 0 ? 0u : interval;
  };
  std::vector<std::thread> threads;
  std::atomic<int> removed{0};
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&, i] {
      for (int n = 0; n < 300; ++n) {
        GTimerEntry* const id = g_add_timer(10 + n % 20, count, nullptr);
        EXPECT_NE(id, nullptr);
        if (n % 3 == 0) removed += g_remove_timer(id);
        if (n % 50 == 49 && i == 0) {
          EXPECT_EQ(g_set_timer(10, count), 0);
        }
        g_get_ticks();
        if (n % 20 == 0) g_delay(5);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(removed, 0);
  EXPECT_GT(calls,
            0);  // they slept for half a second, and never were all timers gone for long
  // Nothing was left locked or unlinked: a last timer is called and goes.
  g_set_timer(0, nullptr);
  calls = 0;
  GTimerEntry* const last = g_add_timer(10, count, nullptr);
  while (calls < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(g_remove_timer(last), 1);
  g_timer_cleanup();
}

}  // namespace
