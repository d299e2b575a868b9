// SPDX-License-Identifier: MIT
// Functions in order of priority; each may stop those after it.
#include <groundwork/groundwork.hpp>

#include <cstdio>

struct Reading {
  double degrees;
};

int main() {
  auto correct = [](Reading& reading) noexcept { reading.degrees -= 0.5; };
  auto check = [](Reading& reading) noexcept { return reading.degrees < 100; };
  auto show = [](Reading& reading) noexcept {
    std::printf("%.1f degrees\n", reading.degrees);
  };

  gw::Callbacks<Reading> steps;
  steps.add(show, 3);
  steps.add(check, 2);  // false stops here
  steps.add(correct, 1);

  for (const double degrees : {21.5, 250.0}) {
    Reading reading{degrees};
    if (!steps.execute(reading)) std::printf("%.1f is out of range\n", reading.degrees);
  }
}
// prints: 21.0 degrees
// prints: 249.5 is out of range
