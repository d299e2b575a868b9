// SPDX-License-Identifier: MIT

#include "safe/monotonic_wait.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // ns

}  // namespace

int groundwork::init_monotonic(pthread_cond_t* cond) {
  pthread_condattr_t attributes;
  int error = pthread_condattr_init(&attributes);
  if (error != 0) return error;
  error = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  if (error == 0) error = pthread_cond_init(cond, &attributes);
  pthread_condattr_destroy(&attributes);
  return error;
}

int64_t groundwork::monotonic_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * kSecond + now.tv_nsec;
}

timespec groundwork::monotonic_time(int64_t nanoseconds) {
  // Unsigned: on 32-bit targets a signed division adds another kilobyte of code.
  const auto count = static_cast<uint64_t>(nanoseconds);
  const uint64_t seconds = count / kSecond;
  timespec time{};
  time.tv_sec = static_cast<time_t>(seconds);
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>(count - seconds * kSecond);
  return time;
}
