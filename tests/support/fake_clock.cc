// SPDX-License-Identifier: MIT

#include "support/fake_clock.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>

#include <sys/time.h>

namespace {

struct Reading {
  int result;
  int64_t seconds;
  int64_t microseconds;
};

std::atomic<bool> is_fake{false};
std::mutex clock_mutex;  // guards the rest
bool fails = false;
int reading_count = 0;
int64_t now = 0;  // microseconds since the epoch

Reading read_clock() {
  if (is_fake.load(std::memory_order_acquire)) {
    const std::lock_guard<std::mutex> lock(clock_mutex);
    ++reading_count;
    if (fails) {
      errno = EPERM;
      return {-1, 0, 0};
    }
    int64_t seconds = now / 1'000'000;
    if (now % 1'000'000 < 0) --seconds;
    return {0, seconds, now - seconds * 1'000'000};
  }
  timespec real{};
  const int result = clock_gettime(CLOCK_REALTIME, &real);
  return {result, real.tv_sec, real.tv_nsec / 1000};
}

template <typename TimeValue>
int read_fake_clock(TimeValue* time) {
  const Reading reading = read_clock();
  if (reading.result != 0 || time == nullptr) return reading.result;
  time->tv_sec = static_cast<decltype(time->tv_sec)>(reading.seconds);
  time->tv_usec = static_cast<decltype(time->tv_usec)>(reading.microseconds);
  return 0;
}

}  // namespace

extern "C" int gettimeofday(timeval* time, void*) noexcept {
  return read_fake_clock(time);
}

// What callers with a 64-bit time_t use on 32-bit targets.
struct TimeValue64 {
  int64_t tv_sec;
  int64_t tv_usec;
};
extern "C" int __gettimeofday64(TimeValue64* time, void*) noexcept;
extern "C" int __gettimeofday64(TimeValue64* time, void*) noexcept {
  return read_fake_clock(time);
}

namespace test {

FakeClock::FakeClock(int64_t seconds, int64_t microseconds) {
  set(seconds, microseconds);
  {
    const std::lock_guard<std::mutex> lock(clock_mutex);
    fails = false;
    reading_count = 0;
  }
  is_fake.store(true, std::memory_order_release);
}

FakeClock::~FakeClock() {
  is_fake.store(false, std::memory_order_release);
}

void FakeClock::set(int64_t seconds, int64_t microseconds) {
  const std::lock_guard<std::mutex> lock(clock_mutex);
  now = seconds * 1'000'000 + microseconds;
}

void FakeClock::advance(int64_t milliseconds) {
  const std::lock_guard<std::mutex> lock(clock_mutex);
  now += milliseconds * 1000;
}

void FakeClock::fail() {
  const std::lock_guard<std::mutex> lock(clock_mutex);
  fails = true;
}

int FakeClock::readings() const {
  const std::lock_guard<std::mutex> lock(clock_mutex);
  return reading_count;
}

}  // namespace test
