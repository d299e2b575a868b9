// Waits for an event with a ticket and a limit.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/library_sleep.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

// While a test has one, the monotonic clock stops on this thread and timed waits do
// what the test says.
struct Simulation {
  LibraryTimespec now{};
  std::vector<std::pair<int64_t, int64_t>> deadlines;
  std::function<int()> wait;  // without the mutex
};
thread_local Simulation* simulation = nullptr;
thread_local int init_refusal = 0;

// How many threads have gone into a wait. Counted under the event's mutex: whoever takes
// that afterwards finds the thread waiting.
std::atomic<int> waits{0};

}  // namespace

extern "C" int LIBRARY_CLOCK_GETTIME(clockid_t clock, LibraryTimespec* time) noexcept {
  if (simulation != nullptr) {
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    *time = simulation->now;
    return 0;
  }
  static auto* const function = NEXT_OF(LIBRARY_CLOCK_GETTIME);
  return function(clock, time);
}

extern "C" int LIBRARY_COND_TIMEDWAIT(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                      const LibraryTimespec* deadline) {
  ++waits;
  if (simulation != nullptr) {
    simulation->deadlines.emplace_back(deadline->tv_sec, deadline->tv_nsec);
    pthread_mutex_unlock(mutex);
    const int result = simulation->wait();
    pthread_mutex_lock(mutex);
    return result;
  }
  static auto* const function = NEXT_OF(LIBRARY_COND_TIMEDWAIT);
  return function(cond, mutex, deadline);
}

extern "C" int pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
  ++waits;
  static auto* const function =
      test::next_function<decltype(pthread_cond_wait)>("pthread_cond_wait");
  return function(cond, mutex);
}

extern "C" int pthread_cond_init(pthread_cond_t* cond,
                                 const pthread_condattr_t* attributes) noexcept {
  if (init_refusal != 0) return init_refusal;
  static auto* const function =
      test::next_function<decltype(pthread_cond_init)>("pthread_cond_init");
  return function(cond, attributes);
}

namespace {

using namespace std::chrono_literals;

template <typename Predicate>
void await(Predicate is_so) {
  while (!is_so()) std::this_thread::sleep_for(1ms);
}

class EventWaitFor : public ::testing::Test {
 protected:
  EventWaitFor() { waits = 0; }
  ~EventWaitFor() override {
    if (event != nullptr) g_thread_event_free(event);
  }

  LogCapture log{0};
  GThreadEvent* event = g_thread_event_new();
};

TEST_F(EventWaitFor, TicketCountsSignalsAndBroadcasts) {
  const uint32_t first = g_thread_event_ticket(event);
  EXPECT_EQ(g_thread_event_ticket(event), first);
  EXPECT_EQ(g_thread_event_signal(event), 0);
  EXPECT_EQ(g_thread_event_ticket(event), first + 1);
  EXPECT_EQ(g_thread_event_broadcast(event), 0);
  EXPECT_EQ(g_thread_event_ticket(event), first + 2);
  EXPECT_EQ(first, 0u);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(EventWaitFor, NullEventReportsTheCheck) {
  const Lines line{check_line("g_thread", "event != NULL")};
  errno = 0;
  EXPECT_EQ(g_thread_event_ticket(nullptr), 0u);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), line);
  errno = 0;
  EXPECT_EQ(g_thread_event_wait_for(nullptr, 0, 1000), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), line);
}

TEST_F(EventWaitFor, SignalBeforeTheWaitEndsIt) {
  for (const int timeout : {0, -1, 1000, INT_MIN, INT_MAX}) {
    const uint32_t ticket = g_thread_event_ticket(event);
    g_thread_event_signal(event);
    EXPECT_EQ(g_thread_event_wait_for(event, ticket, timeout), 0);
    // It is not used up: the ticket is as old as before.
    EXPECT_EQ(g_thread_event_wait_for(event, ticket, timeout), 0);
    g_thread_event_broadcast(event);
    EXPECT_EQ(g_thread_event_wait_for(event, ticket, timeout), 0);
  }
  EXPECT_EQ(waits, 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(EventWaitFor, ZeroTimeDoesNotWait) {
  EXPECT_EQ(g_thread_event_wait_for(event, g_thread_event_ticket(event), 0), 1);
  EXPECT_EQ(waits, 0);
}

TEST_F(EventWaitFor, AnyOtherTicketIsAnOlderOne) {
  EXPECT_EQ(g_thread_event_wait_for(event, g_thread_event_ticket(event) - 1, 0), 0);
  EXPECT_EQ(g_thread_event_wait_for(event, g_thread_event_ticket(event) + 1, 0), 0);
}

TEST_F(EventWaitFor, DeadlineIsOnTheMonotonicClock) {
  struct Row {
    int64_t seconds;
    int nanoseconds;
    int timeout;
    int64_t end_seconds;
    int64_t end_nanoseconds;
  };
  for (const Row& row : {
           Row{100, 0, 1, 100, 1'000'000},
           Row{100, 999'000'000, 1, 101, 0},  // a full second is carried
           Row{100, 999'999'999, 1, 101, 999'999},
           Row{100, 500'000'000, 1500, 102, 0},
           Row{0, 1, INT_MAX, 2'147'483, 647'000'001},
           Row{2'147'483'647, 999'999'999, 2, 2'147'483'648, 1'999'999},
           Row{5'000'000'000, 0, 10, 5'000'000'000, 10'000'000},
       }) {
    if (sizeof simulation->now.tv_sec == 4 && row.end_seconds > INT_MAX) continue;
    Simulation simulated;
    simulated.now.tv_sec = static_cast<decltype(simulated.now.tv_sec)>(row.seconds);
    simulated.now.tv_nsec = row.nanoseconds;
    simulated.wait = [] { return ETIMEDOUT; };
    simulation = &simulated;
    const int result =
        g_thread_event_wait_for(event, g_thread_event_ticket(event), row.timeout);
    simulation = nullptr;
    EXPECT_EQ(result, 1);
    ASSERT_EQ(simulated.deadlines.size(), 1u);
    EXPECT_EQ(simulated.deadlines[0].first, row.end_seconds) << row.timeout;
    EXPECT_EQ(simulated.deadlines[0].second, row.end_nanoseconds) << row.timeout;
  }
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(EventWaitFor, WakeUpWithoutASignalWaitsOnToTheSameDeadline) {
  Simulation simulated;
  simulated.now.tv_sec = 50;
  int wakings = 0;
  simulated.wait = [&] {
    simulated.now.tv_sec = 51;
    return ++wakings < 4 ? 0 : ETIMEDOUT;
  };
  simulation = &simulated;
  const int result = g_thread_event_wait_for(event, g_thread_event_ticket(event), 2000);
  simulation = nullptr;
  EXPECT_EQ(result, 1);
  EXPECT_EQ(simulated.deadlines, (std::vector<std::pair<int64_t, int64_t>>(4, {52, 0})));
}

TEST_F(EventWaitFor, SignalDuringTheWaitEndsIt) {
  Simulation simulated;
  simulated.wait = [&] {
    g_thread_event_signal(event);
    return 0;
  };
  simulation = &simulated;
  const int result = g_thread_event_wait_for(event, g_thread_event_ticket(event), 2000);
  simulation = nullptr;
  EXPECT_EQ(result, 0);
  EXPECT_EQ(simulated.deadlines.size(), 1u);
}

TEST_F(EventWaitFor, SignalAtTheDeadlineCountsAsSignal) {
  Simulation simulated;
  simulated.wait = [&] {
    g_thread_event_signal(event);
    return ETIMEDOUT;
  };
  simulation = &simulated;
  const int result = g_thread_event_wait_for(event, g_thread_event_ticket(event), 2000);
  simulation = nullptr;
  EXPECT_EQ(result, 0);
}

TEST_F(EventWaitFor, SystemsRefusalIsMinusOneWithItsErrno) {
  const uint32_t ticket = g_thread_event_ticket(event);
  init_refusal = EAGAIN;
  errno = 0;
  EXPECT_EQ(g_thread_event_wait_for(event, ticket, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  init_refusal = 0;
  Simulation simulated;
  simulated.wait = [] { return EPERM; };
  simulation = &simulated;
  const int result = g_thread_event_wait_for(event, ticket, 2000);
  const int error = errno;
  simulation = nullptr;
  EXPECT_EQ(result, -1);
  EXPECT_EQ(error, EPERM);
  EXPECT_EQ(simulated.deadlines.size(), 1u);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(g_thread_event_wait_for(event, ticket, 1), 1);
}

TEST_F(EventWaitFor, ReallyLastsAsLongAsAsked) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(g_thread_event_wait_for(event, g_thread_event_ticket(event), 60), 1);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 60ms);
}

TEST_F(EventWaitFor, NegativeTimeHasNoLimit) {
  std::atomic<int> result{-7};
  std::thread waiter(
      [&] { result = g_thread_event_wait_for(event, g_thread_event_ticket(event), -1); });
  await([] { return waits == 1; });
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(result, -7);
  g_thread_event_signal(event);
  waiter.join();
  EXPECT_EQ(result, 0);
}

TEST_F(EventWaitFor, OneSignalEndsAllTicketWaitsAndOneOlderWait) {
  const uint32_t ticket = g_thread_event_ticket(event);
  std::atomic<int> ended{0};
  std::atomic<int> older_ended{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    const int timeout = i == 0 ? -1 : 100000;
    threads.emplace_back([&, timeout] {
      EXPECT_EQ(g_thread_event_wait_for(event, ticket, timeout), 0);
      ++ended;
    });
  }
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(g_thread_event_wait(event), 0);
      ++older_ended;
    });
  }
  await([] { return waits == 5; });
  g_thread_event_signal(event);
  await([&] { return ended == 3 && older_ended >= 1; });
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(older_ended, 1);
  g_thread_event_signal(event);
  await([&] { return older_ended == 2; });
  for (std::thread& thread : threads) thread.join();
}

TEST_F(EventWaitFor, SignalDoesNotEndTheWaitOfANewerTicket) {
  g_thread_event_signal(event);
  EXPECT_EQ(g_thread_event_wait_for(event, g_thread_event_ticket(event), 20), 1);
}

TEST_F(EventWaitFor, FreeingTheEventEndsEveryTicketWait) {
  test::warm_up_threads();
  AllocationFaults faults(0);
  GThreadEvent* const freed = g_thread_event_new();
  faults.disarm();
  std::atomic<int> ended{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    const int timeout = i % 2 == 0 ? -1 : 100000;
    threads.emplace_back([&, timeout] {
      EXPECT_EQ(g_thread_event_wait_for(freed, g_thread_event_ticket(freed), timeout), 0);
      ++ended;
    });
  }
  await([] { return waits == 4; });
  g_thread_event_free(freed);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ended, 4);
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(log.take(), Lines{});
}

struct Cancelled {
  GThreadEvent* event;
  uint32_t ticket;
  int timeout;
  std::atomic<bool> goes{false};
  std::atomic<bool> returned{false};

  static void* run(void* data) {
    auto* const wait = static_cast<Cancelled*>(data);
    while (!wait->goes) sched_yield();
    g_thread_event_wait_for(wait->event, wait->ticket, wait->timeout);
    wait->returned = true;
    return nullptr;
  }
};

TEST_F(EventWaitFor, CancelledWaitLetsGoOfTheEvent) {
  test::warm_up_threads();
  for (const int timeout : {-1, 100000}) {
    AllocationFaults faults(0);
    GThreadEvent* const waited_for = g_thread_event_new();
    faults.disarm();
    Cancelled wait{waited_for, g_thread_event_ticket(waited_for), timeout};
    wait.goes = true;
    waits = 0;
    GThread* const thread = g_thread_create(Cancelled::run, &wait, nullptr);
    await([] { return waits == 1; });
    g_thread_cancel(thread);
    g_thread_wait(thread);
    EXPECT_FALSE(wait.returned);
    // The mutex is free, and nobody counts as waiting: or the first would hang and the
    // event be kept.
    EXPECT_EQ(g_thread_event_signal(waited_for), 0);
    EXPECT_EQ(g_thread_event_wait_for(waited_for, wait.ticket, 1000), 0);
    g_thread_event_free(waited_for);
    EXPECT_EQ(faults.outstanding(), 0);
  }
}

TEST_F(EventWaitFor, CancellationTakesEffectWhereThereIsNothingToWaitFor) {
  for (const int timeout : {0, 1000}) {
    Cancelled wait{event, g_thread_event_ticket(event) - 1, timeout};
    GThread* const thread = g_thread_create(Cancelled::run, &wait, nullptr);
    g_thread_cancel(thread);
    wait.goes = true;
    g_thread_wait(thread);
    EXPECT_FALSE(wait.returned);
  }
  EXPECT_EQ(g_thread_event_signal(event), 0);
}

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) || \
    !(defined(__i386__) || defined(__x86_64__))
constexpr int kRaces = 50'000;  // slow machines and slow programs
#else
constexpr int kRaces = 1'000'000;
#endif

// Two threads take turns: each signals when the other one may be anywhere between its
// ticket and its wait. A lost signal would be a wait of half a minute.
TEST_F(EventWaitFor, NoSignalIsLostInAMillionRaces) {
  GThreadEvent* const back = g_thread_event_new();
  std::atomic<int> sent{0};
  std::atomic<int> received{0};
  std::atomic<int> time_outs{0};
  const auto take = [&](GThreadEvent* from, const std::atomic<int>& count, int wanted) {
    for (;;) {
      const uint32_t ticket = g_thread_event_ticket(from);
      if (count == wanted) return true;
      if (g_thread_event_wait_for(from, ticket, 30000) != 0) {
        ++time_outs;
        return false;
      }
    }
  };
  std::thread receiver([&] {
    for (int i = 1; i <= kRaces / 2; ++i) {
      if (!take(event, sent, i)) return;
      received = i;
      g_thread_event_signal(back);
    }
  });
  for (int i = 1; i <= kRaces / 2; ++i) {
    sent = i;
    g_thread_event_signal(event);
    if (!take(back, received, i)) break;
  }
  receiver.join();
  EXPECT_EQ(time_outs, 0);
  EXPECT_EQ(received, kRaces / 2);
  g_thread_event_free(back);
}

TEST_F(EventWaitFor, ManyThreadsWaitWhileManySignal) {
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 2000; ++n) {
        const uint32_t ticket = g_thread_event_ticket(event);
        EXPECT_EQ(g_thread_event_wait_for(event, ticket, 30000), 0);
      }
    });
  }
  std::vector<std::thread> signallers;
  for (int i = 0; i < 2; ++i) {
    signallers.emplace_back([&, i] {
      while (!done) i == 0 ? g_thread_event_signal(event) : g_thread_event_broadcast(event);
    });
  }
  for (std::thread& thread : threads) thread.join();
  done = true;
  for (std::thread& thread : signallers) thread.join();
}

}  // namespace
