/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_TIME_HPP
#define GROUNDWORK_CPP_TIME_HPP

#include <groundwork/safe.h>
#include <groundwork/timer.h>

#include <chrono>
#include <climits>
#include <cstdint>

namespace gw {

/**
 * A time for the library: whole milliseconds in an int, from a number or from any `std::chrono`
 * duration. A duration is rounded up, so that nothing happens too early; one that does not fit
 * becomes the longest, 24 days.
 *
 * @code{.cpp}
 * gw::delay(2);
 * gw::delay(std::chrono::microseconds(1500));  // the same
 * @endcode
 */
class Milliseconds {
 public:
  /** @param count number of milliseconds. */
  constexpr Milliseconds(int count) : count_(count) {}
  /** @param duration any. */
  template <typename Rep, typename Period>
  constexpr Milliseconds(std::chrono::duration<Rep, Period> duration)
      : count_(rounded_up(duration)) {}

  /** @return the number of milliseconds. */
  [[nodiscard]] constexpr int count() const { return count_; }

 private:
  template <typename Rep, typename Period>
  static constexpr int rounded_up(std::chrono::duration<Rep, Period> duration) {
    // Compared as floating point, which every duration fits into.
    using Approximate = std::chrono::duration<double, std::milli>;
    const Approximate approximate = duration;
    if (approximate.count() >= INT_MAX) return INT_MAX;
    if (approximate.count() <= INT_MIN) return INT_MIN;
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(duration).count());
  }

  int count_;
};

/** Sleeps, as g_delay(). @param time how long. */
inline void delay(Milliseconds time) {
  g_delay(time.count());
}

/**
 * The clock of g_monotonic_ms(), for `std::chrono`: it cannot be set.
 *
 * @code{.cpp}
 * const auto begin = gw::MonotonicClock::now();
 * gw::delay(20);
 * const auto took = gw::MonotonicClock::now() - begin;
 * puts(took >= std::chrono::milliseconds(19) ? "slept" : "woken early");  // prints: slept
 * @endcode
 */
struct MonotonicClock {
  /** Type of durations. */
  using duration = std::chrono::milliseconds;
  /** Type of a number of ticks. */
  using rep = duration::rep;
  /** Length of a tick. */
  using period = duration::period;
  /** An instant. */
  using time_point = std::chrono::time_point<MonotonicClock>;
  /** It never goes backwards. */
  static constexpr bool is_steady = true;

  /** @return the current time. */
  [[nodiscard]] static time_point now() { return time_point(duration(g_monotonic_ms())); }
};

}  // namespace gw

#endif
