// Signals that arrive while a call waits.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_INTERRUPTIONS_H
#define GROUNDWORK_TESTS_SUPPORT_INTERRUPTIONS_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace test {

// While alive, each wait of the creating thread is interrupted by a signal whose handler
// was installed without SA_RESTART. After `count` signals `end_wait` is called instead, for
// calls that go on waiting.
class Interruptions {
 public:
  explicit Interruptions(int count = 1000, std::function<void()> end_wait = nullptr)
      : count_(count), end_wait_(std::move(end_wait)) {
    handled() = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++handled(); };
    sigaction(SIGUSR1, &action, &previous_);
    thread_ = std::thread([this, waiting = pthread_self(), id = syscall(SYS_gettid)] {
      interrupt(waiting, id);
    });
  }
  ~Interruptions() {
    is_over_ = true;
    thread_.join();
    sigaction(SIGUSR1, &previous_, nullptr);
    EXPECT_GT(handled(), 0) << "the call did not wait";
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

 private:
  static std::atomic<int>& handled() {
    static std::atomic<int> count{0};
    return count;
  }

  // From what the kernel says of the thread: "id (name) state ...".
  static bool is_asleep(long id) {
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string line;
    std::getline(file, line);
    const size_t name_end = line.rfind(')');
    return name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0;
  }

  void interrupt(pthread_t waiting, long id) {
    for (int sent = 0; !is_over_;) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (is_over_ || !is_asleep(id)) continue;
      if (sent++ < count_) {
        pthread_kill(waiting, SIGUSR1);
      } else if (end_wait_ != nullptr) {
        std::exchange(end_wait_, nullptr)();
      }
    }
  }

  const int count_;
  std::function<void()> end_wait_;
  std::atomic<bool> is_over_{false};
  struct sigaction previous_ = {};
  std::thread thread_;
};

}  // namespace test

#endif
