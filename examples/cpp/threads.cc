// SPDX-License-Identifier: MIT
// A worker with a queue, an event that loses no signal, a timer and a time limit.
#include <groundwork/groundwork.hpp>

#include <chrono>
#include <cstdio>

using namespace std::chrono_literals;

int main() {
  gw::Queue<int> numbers;
  gw::Event done;
  gw::Mutex mutex;
  int sum = 0;

  // Take the ticket first: any signal from now on ends the wait, however early it comes.
  const gw::Event::Ticket ticket = done.ticket();
  for (int i = 1; i <= 100; ++i) numbers.push(i);
  gw::Thread worker([&] {
    while (const auto number = numbers.pop()) {
      const gw::Lock lock(mutex);
      sum += *number;
    }
    done.signal();
  });
  if (!done.wait_for(ticket, 10s)) {
    std::puts("the worker is late");
    return 1;
  }
  worker.join();
  std::printf("sum %d\n", sum);
  std::puts(done.wait_for(5ms) ? "a signal" : "no further signal");

  const gw::TimerService service;
  const gw::PowerSaving saving;  // the service sleeps until a timer is due
  const gw::Event::Ticket before_beats = done.ticket();
  const gw::Timer heart(20ms, [&done, beats = 0]() mutable {
    if (++beats == 3) done.signal();
  });
  std::puts(done.wait_for(before_beats, 10s) ? "three beats" : "no pulse");
}
// prints: sum 5050
// prints: no further signal
// prints: three beats
