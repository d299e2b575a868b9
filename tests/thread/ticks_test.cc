// The tick clock and the sleep. The clock's state lives as long as the process, so every
// reading here also goes into a model of it, which starts when the process does.
//
// SPDX-License-Identifier: MIT

#include <groundwork/thread.h>
#include <groundwork/timer.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <sys/select.h>

#include "support/fake_clock.h"
#include "support/library_sleep.h"

using test::FakeClock;
using test::kLastSecondOf32Bits;

namespace {

struct Sleep {
  int64_t seconds;
  int64_t microseconds;
};

// The sleeps requested. While `results` is not empty, each ends immediately with the next
// errno of it.
std::vector<Sleep> sleeps;
std::vector<int> results;
bool is_recording = false;

template <typename TimeValue>
bool simulate_sleep(TimeValue* time, int* result) {
  if (!is_recording) return false;
  sleeps.push_back({time->tv_sec, time->tv_usec});
  if (results.empty()) return false;
  errno = results.front();
  *result = errno == 0 ? 0 : -1;
  results.erase(results.begin());
  time->tv_usec -= 1000;  // what the kernel does: the rest is left in it
  return true;
}

}  // namespace

extern "C" int LIBRARY_SELECT(int count, fd_set* read, fd_set* write, fd_set* except,
                              LibraryTimeval* time) {
  int result;
  if (simulate_sleep(time, &result)) return result;
  static auto* const function = NEXT_OF(LIBRARY_SELECT);
  return function(count, read, write, except, time);
}

namespace {

// The rule of the ticks, in 64-bit numbers.
struct Model {
  int64_t base_seconds = 0;
  int64_t base_microseconds = 0;
  uint32_t last = 0;

  void start(int64_t seconds, int64_t microseconds) {
    base_seconds = seconds;
    base_microseconds = microseconds;
  }

  uint32_t read(int64_t seconds, int64_t microseconds) {
    auto ticks = static_cast<uint32_t>((seconds - base_seconds) * 1000 +
                                       (microseconds - base_microseconds) / 1000);
    const auto difference = static_cast<int32_t>(ticks - last);
    if (std::llabs(difference) >= 30001) {
      const auto x = static_cast<uint32_t>(seconds * 1000 + microseconds / 1000 - last);
      ticks = last + 10;
      base_seconds = x / 1000;
      base_microseconds = static_cast<int64_t>(x % 1000) * 1000;
    }
    return last = ticks;
  }
};

Model model;

// Sets the clock and checks a reading against the model.
class Ticks : public ::testing::Test {
 protected:
  uint32_t read_at(int64_t seconds, int64_t microseconds = 0) {
    clock.set(seconds, microseconds);
    const uint32_t ticks = g_get_ticks();
    EXPECT_EQ(ticks, model.read(seconds, microseconds));
    return ticks;
  }

  void start_at(int64_t seconds, int64_t microseconds = 0) {
    clock.set(seconds, microseconds);
    EXPECT_EQ(g_start_ticks(), 0);
    model.start(seconds, microseconds);
  }

  // Starts the ticks, then reads past the step that this may be.
  uint32_t settle_at(int64_t seconds) {
    start_at(seconds);
    read_at(seconds);
    return read_at(seconds);
  }

  // Brings the last ticks to zero, by half a minute at a time.
  void wind_to_zero() {
    settle_at(1700000000);
    int64_t now = 1700000000000;
    while (model.last != 0) {
      const auto rest = static_cast<int32_t>(model.last);
      now -= std::clamp(rest, -30000, 30000);
      read_at(now / 1000, now % 1000 * 1000);
      ASSERT_FALSE(HasFailure());
    }
  }

  FakeClock clock{0};
};

// Must run first: a process has one start.
TEST_F(Ticks, AFirstReadingOfTheEpochsMillisecondsIsTakenForAStepAndReturnsTen) {
  if (model.last != 0 || model.base_seconds != 0) GTEST_SKIP() << "ticks were read before";
  EXPECT_EQ(read_at(1700000000, 123456), 10u);
  // Anchored to the ticks before the step.
  EXPECT_LE(read_at(1700000000, 123456), 1u);
  EXPECT_LE(read_at(1700000000, 173456), 51u);
}

TEST_F(Ticks, CountMillisecondsAfterTheStart) {
  uint32_t last = settle_at(1700000000);
  EXPECT_EQ(read_at(1700000001), last + 1000);
  EXPECT_EQ(read_at(1700000001, 1999), last + 1001);
  EXPECT_EQ(read_at(1700000031, 1000), last + 31001);
}

TEST_F(Ticks, StartMakesThisInstantZero) {
  wind_to_zero();
  start_at(1700000100, 500000);
  EXPECT_EQ(read_at(1700000100, 500000), 0u);
  EXPECT_EQ(read_at(1700000101, 500000), 1000u);
}

TEST_F(Ticks, StartAfterMoreThanThirtySecondsIsAStep) {
  wind_to_zero();
  start_at(1700000000);
  read_at(1700000020);
  EXPECT_EQ(read_at(1700000031), 31000u);
  start_at(1700000031);
  EXPECT_EQ(read_at(1700000031), 31010u);
  EXPECT_EQ(read_at(1700000031), 31000u);
}

TEST_F(Ticks, FractionIsCutTowardsZero) {
  wind_to_zero();
  start_at(1700000000, 999999);
  EXPECT_EQ(read_at(1700000001, 1999), 2u);  // 1000 - 998
  EXPECT_EQ(read_at(1700000001, 1000), 2u);  // 1000 - 998.999
  EXPECT_EQ(read_at(1700000001, 0), 1u);     // 1000 - 999.999
}

TEST_F(Ticks, JumpOfThirtySecondsIsStillTime) {
  const uint32_t last = settle_at(1700000000);
  EXPECT_EQ(read_at(1700000030), last + 30000);
  EXPECT_EQ(read_at(1700000000), last);
}

TEST_F(Ticks, JumpOfAMillisecondMoreIsAStepForwards) {
  const uint32_t last = settle_at(1700000000);
  EXPECT_EQ(read_at(1700000030, 1000), last + 10);
  EXPECT_EQ(read_at(1700000030, 1000), last);
  EXPECT_EQ(read_at(1700000030, 21000), last + 20);
}

TEST_F(Ticks, AndBackwards) {
  const uint32_t last = settle_at(1700000100);
  EXPECT_EQ(read_at(1700000069, 999000), last + 10);
  EXPECT_EQ(read_at(1700000069, 999000), last);
  EXPECT_EQ(read_at(1700000071, 999000), last + 2000);
}

TEST_F(Ticks, StepOfAMinuteAdvancesByTen) {
  const uint32_t last = settle_at(1700000000);
  EXPECT_EQ(read_at(1700000060), last + 10);
  EXPECT_EQ(read_at(1700000061), last + 1000);
}

TEST_F(Ticks, GoOnThroughTheEndOf32BitTime) {
  const uint32_t last = settle_at(kLastSecondOf32Bits - 1);
  EXPECT_EQ(read_at(kLastSecondOf32Bits, 999000), last + 1999);
  EXPECT_EQ(read_at(kLastSecondOf32Bits + 1), last + 2000);
  EXPECT_EQ(read_at(kLastSecondOf32Bits + 11), last + 12000);
  settle_at(4294967290);
  EXPECT_EQ(read_at(4294967300), model.last);
  const uint32_t before = model.last;
  EXPECT_EQ(read_at(4294967310), before + 10000);
}

TEST_F(Ticks, AStepOverTheEndOf32BitTimeIsAStepLikeAnyOther) {
  const uint32_t last = settle_at(1700000000);
  EXPECT_EQ(read_at(kLastSecondOf32Bits + 86400), last + 10);
  EXPECT_EQ(read_at(kLastSecondOf32Bits + 86401), last + 1000);
  EXPECT_EQ(read_at(1700000000), last + 1010);
}

TEST_F(Ticks, WrapAfter49DaysIsNoStep) {
  settle_at(1700000000);
  int64_t seconds = 1700000000;
  uint32_t last = model.last;
  int wraps = 0;
  while (wraps == 0) {
    seconds += 30;
    const uint32_t ticks = read_at(seconds);
    ASSERT_EQ(ticks, last + 30000);
    if (ticks < last) ++wraps;
    last = ticks;
  }
  EXPECT_EQ(read_at(seconds - 10), last - 10000);  // back over the wrap
}

TEST_F(Ticks, UnreadableClockFailsTheStartAndKeepsTheBase) {
  const uint32_t last = settle_at(1700000000);
  {
    FakeClock broken(0);
    broken.fail();
    EXPECT_EQ(g_start_ticks(), -1);
  }
  FakeClock again(1700000005);
  EXPECT_EQ(g_get_ticks(), last + 5000);
  model.read(1700000005, 0);
}

TEST_F(Ticks, RandomClockMatchesTheModel) {
  std::mt19937_64 random(11);
  int64_t now = 1700000000000000;
  for (int i = 0; i < 20000; ++i) {
    switch (random() % 8) {
      case 0:
        now += static_cast<int64_t>(random() % 200'000'000'000'000) - 100'000'000'000'000;
        break;
      case 1:
        now -= static_cast<int64_t>(random() % 40'000'000);
        break;
      default:
        now += static_cast<int64_t>(random() % 40'000'000);
    }
    if (now < 0) now = 1;
    if (random() % 50 == 0) {
      start_at(now / 1000000, now % 1000000);
    } else {
      read_at(now / 1000000, now % 1000000);
    }
    ASSERT_FALSE(HasFailure());
  }
}

TEST(TicksThreads, AnyThreadMayReadWhileTheClockSteps) {
  FakeClock clock(1700000000);
  g_start_ticks();
  std::atomic<bool> done{false};
  std::vector<std::thread> readers;
  std::atomic<int> readings{0};
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      uint32_t last = g_get_ticks();
      while (!done) {
        const uint32_t ticks = g_get_ticks();
        // However the threads meet, no step of the clock shows.
        EXPECT_LT(std::llabs(static_cast<int32_t>(ticks - last)), 60000);
        last = ticks;
        ++readings;
      }
    });
  }
  for (int i = 0; i < 200; ++i) {
    const int seen = readings;
    clock.advance(i % 2 == 0 ? 100000 : -90000);
    while (readings < seen + 3) std::this_thread::yield();
  }
  g_start_ticks();
  done = true;
  for (std::thread& reader : readers) reader.join();
  // Back in sync with the model, wherever the threads have left the state.
  clock.set(1700000000);
  g_start_ticks();
  model.start(1700000000, 0);
  model.last = g_get_ticks();
  if (model.last != 0) {
    model.last -= 10;
    EXPECT_EQ(model.read(1700000000, 0), g_get_ticks() + 10);
    model.last = g_get_ticks();
  }
}

class Delay : public ::testing::Test {
 protected:
  Delay() {
    sleeps.clear();
    results.clear();
    is_recording = true;
  }
  ~Delay() override { is_recording = false; }
};

TEST_F(Delay, SleepsAtLeastThatLong) {
  const auto begin = std::chrono::steady_clock::now();
  g_delay(30);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

TEST_F(Delay, SplitsIntoSecondsAndMicroseconds) {
  results = {0};
  g_delay(2345);
  ASSERT_EQ(sleeps.size(), 1u);
  EXPECT_EQ(sleeps[0].seconds, 2);
  EXPECT_EQ(sleeps[0].microseconds, 345000);
}

TEST_F(Delay, InterruptedSleepGoesOnForTheRest) {
  results = {EINTR, EINTR, 0};
  g_delay(50);
  ASSERT_EQ(sleeps.size(), 3u);
  EXPECT_EQ(sleeps[0].microseconds, 50000);
  EXPECT_EQ(sleeps[1].microseconds, 49000);
  EXPECT_EQ(sleeps[2].microseconds, 48000);
}

TEST_F(Delay, AnyOtherFailureEndsIt) {
  results = {EINVAL};
  g_delay(50);
  EXPECT_EQ(sleeps.size(), 1u);
}

TEST_F(Delay, ClearsAPreviousError) {
  errno = EINTR;
  g_delay(0);
  EXPECT_EQ(errno, 0);
}

TEST(DelayThreads, IsACancellationPoint) {
  GThread* const thread = g_thread_create(
      [](void*) -> void* {
        g_delay(1'000'000);
        return nullptr;
      },
      nullptr, "sleeper");
  g_thread_cancel(thread);
  EXPECT_EQ(g_thread_wait(thread), 0);
}

TEST_F(Delay, NegativeAndZeroReturnImmediately) {
  const auto begin = std::chrono::steady_clock::now();
  for (const int ms : {0, -1, -1000, -2147483647 - 1}) g_delay(ms);
  EXPECT_EQ(sleeps.size(), 4u);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

}  // namespace
