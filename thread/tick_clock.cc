// The tick clock: milliseconds of the wall clock, without its steps.
//
// The state is three 32-bit words, each read and written separately: threads that notice a
// step of the clock simultaneously may each count it.
//
// SPDX-License-Identifier: MIT

#include <groundwork/timer.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include <sys/time.h>

namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr uint32_t kStep = 30001;        // ms; a jump of at least this is a step
constexpr uint32_t kTicksForAStep = 10;  // ms that a step counts as

// The time of tick 0, and the ticks last returned. Ticks are modulo 2^32, so the seconds
// may be, too.
struct TickClock {
  std::atomic<uint32_t> base_seconds{0};
  std::atomic<int32_t> base_microseconds{0};
  std::atomic<uint32_t> last{0};
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

constinit TickClock ticks_of_process;

// Returns the ticks at a step of the wall clock, and moves the base so that readings
// continue from there.
[[gnu::noinline, gnu::cold]] uint32_t step(TickClock& clock, uint32_t seconds,
                                           int32_t microseconds, uint32_t last) {
  // Kept: the base follows the last ticks, not those returned now, so the next reading may
  // be up to 10 ms less than this one.
  const uint32_t base = seconds * 1000 + static_cast<uint32_t>(microseconds / 1000) - last;
  clock.base_seconds.store(base / 1000, relaxed);
  clock.base_microseconds.store(static_cast<int32_t>(base % 1000 * 1000), relaxed);
  return last + kTicksForAStep;
}

}  // namespace

extern "C" int g_start_ticks(void) {
  timeval now{};
  const int result = gettimeofday(&now, nullptr);
  if (result == 0) {
    TickClock& clock = ticks_of_process;
    clock.base_seconds.store(static_cast<uint32_t>(now.tv_sec), relaxed);
    clock.base_microseconds.store(static_cast<int32_t>(now.tv_usec), relaxed);
  }
  return result;
}

extern "C" uint32_t g_get_ticks(void) {
  TickClock& clock = ticks_of_process;
  timeval now{};
  gettimeofday(&now, nullptr);
  const auto seconds = static_cast<uint32_t>(now.tv_sec);
  const auto microseconds = static_cast<int32_t>(now.tv_usec);
  const int32_t fraction = (microseconds - clock.base_microseconds.load(relaxed)) / 1000;
  uint32_t ticks =
      (seconds - clock.base_seconds.load(relaxed)) * 1000 + static_cast<uint32_t>(fraction);
  const uint32_t last = clock.last.load(relaxed);
  const uint32_t ahead = ticks - last;
  if (std::min(ahead, 0 - ahead) >= kStep) [[unlikely]] {
    ticks = step(clock, seconds, microseconds, last);
  }
  clock.last.store(ticks, relaxed);
  return ticks;
}
