// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cstdint>

#include <time.h>
#include <unistd.h>

#include "support/library_sleep.h"

namespace {

bool is_fake = false;
clockid_t asked = -1;
LibraryTimespec fake{};

}  // namespace

// The library reads its clock from the test program, which returns what a test sets.
extern "C" int LIBRARY_CLOCK_GETTIME(clockid_t clock, LibraryTimespec* time) noexcept {
  if (is_fake) {
    asked = clock;
    *time = fake;
    return 0;
  }
  static auto* const function = NEXT_OF(LIBRARY_CLOCK_GETTIME);
  return function(clock, time);
}

namespace {

TEST(MonotonicClock, GivesTheMillisecondsOfClockMonotonic) {
  struct Row {
    int64_t seconds;
    int nanoseconds;
    int64_t milliseconds;
  };
  is_fake = true;
  for (const Row& row :
       {Row{0, 0, 0}, Row{0, 999'999, 0}, Row{0, 1'000'000, 1}, Row{1, 999'999'999, 1999},
        Row{4'294'967, 296'000'000, 4'294'967'296},
        Row{2'147'483'648, 5'000'000, 2'147'483'648'005}}) {
    fake = {};
    fake.tv_sec = static_cast<decltype(fake.tv_sec)>(row.seconds);
    fake.tv_nsec = row.nanoseconds;
    EXPECT_EQ(g_monotonic_ms(), row.milliseconds);
    EXPECT_EQ(asked, CLOCK_MONOTONIC);
  }
  is_fake = false;
}

TEST(MonotonicClock, GoesOnWithTheTime) {
  timespec before{};
  clock_gettime(CLOCK_MONOTONIC, &before);
  const int64_t first = g_monotonic_ms();
  usleep(20000);
  const int64_t second = g_monotonic_ms();
  timespec after{};
  clock_gettime(CLOCK_MONOTONIC, &after);
  const auto in_ms = [](const timespec& time) {
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
  };
  EXPECT_GE(first, in_ms(before));
  EXPECT_GE(second, first + 20);
  EXPECT_LE(second, in_ms(after));
}

}  // namespace
