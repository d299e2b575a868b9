// What a piece of work costs in processor time, so that other programs do not count.
//
// SPDX-License-Identifier: MIT

#ifndef GROUNDWORK_TESTS_SUPPORT_PROCESSOR_TIME_H
#define GROUNDWORK_TESTS_SUPPORT_PROCESSOR_TIME_H

#include <algorithm>
#include <ctime>

namespace test {

// Of this thread.
inline double processor_seconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Some kernels count in ticks of a timer, 4 ms or 10 ms each.
inline double processor_clock_step() {
  const double begin = processor_seconds();
  volatile double now = begin;  // on x87, a value in a register has more digits
  while (now == begin) now = processor_seconds();
  return now - begin;
}

// Of one call of work(): the least of some runs, so that a slow moment does not count. A
// run makes so many calls that a step of the clock matters little.
template <typename Work>
double least_seconds(int runs, Work work) {
  const double enough = 20 * processor_clock_step();
  double least = 1e9;
  for (int run = 0; run < runs; ++run) {
    const double begin = processor_seconds();
    double used = 0;
    int calls = 0;
    while (used < enough) {
      work();
      ++calls;
      used = processor_seconds() - begin;
    }
    least = std::min(least, used / calls);
  }
  return least;
}

}  // namespace test

#endif
