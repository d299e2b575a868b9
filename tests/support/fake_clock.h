// A wall clock under the test's control.
//
// The test program defines gettimeofday() itself, under each name that the C library gives
// it, so the library's readings come through here. Waits and sleeps stay real.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_FAKE_CLOCK_H
#define GROUNDWORK_TESTS_SUPPORT_FAKE_CLOCK_H

#include <cstdint>

namespace test {

// While alive, gettimeofday() returns the time set here, on every thread. The clock does
// not move by itself.
class FakeClock {
 public:
  explicit FakeClock(int64_t seconds, int64_t microseconds = 0);
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  void set(int64_t seconds, int64_t microseconds = 0);
  // Moves the clock forward, or back.
  void advance(int64_t milliseconds);
  // From now on readings fail with -1 and store nothing.
  void fail();
  // How often the clock was read while this object lived.
  int readings() const;
};

// 2038-01-19 03:14:07 UTC, the last second that a 32-bit time can hold.
constexpr int64_t kLastSecondOf32Bits = 2147483647;

}  // namespace test

#endif
