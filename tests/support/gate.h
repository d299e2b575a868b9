// Where a thread under test waits, as the service of the timers does between two passes.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_GATE_H
#define GROUNDWORK_TESTS_SUPPORT_GATE_H

#include <condition_variable>
#include <mutex>

namespace test {

// Open at first.
class Gate {
 public:
  void close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_closed_ = true;
    arrivals_ = 0;
    permits_ = 0;
  }

  void open() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_closed_ = false;
    changed_.notify_all();
  }

  // Waits until threads have come here so many times since the gate was closed.
  void await_arrival(int count = 1) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return arrivals_ >= count; });
  }

  // Lets one thread through and waits until one is back.
  void pass() {
    std::unique_lock<std::mutex> lock(mutex_);
    const int before = arrivals_;
    ++permits_;
    changed_.notify_all();
    changed_.wait(lock, [&] { return arrivals_ > before; });
  }

  // Lets one thread through that will not come back.
  void release() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++permits_;
    changed_.notify_all();
  }

  // For the thread: waits to be let through. False when the gate is open.
  bool stop_here() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!is_closed_) return false;
    ++arrivals_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return permits_ > 0 || !is_closed_; });
    if (permits_ > 0) --permits_;
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool is_closed_ = false;
  int arrivals_ = 0;
  int permits_ = 0;
};

}  // namespace test

#endif
