// The clock that cannot be set.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <ctime>

extern "C" int64_t g_monotonic_ms(void) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}
