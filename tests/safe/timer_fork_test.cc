// A timer service that saves power, in a child of fork().
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <groundwork/timer.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

#include <sys/wait.h>
#include <unistd.h>

#include "support/service_output.h"
#include "support/threads_of_children.h"

namespace {

std::atomic<int> fired{0};

uint32_t fire(uint32_t interval, void*) {
  ++fired;
  return interval;
}

// The parent's thread sleeps on the condition that the child inherits: it must not count as
// waiting there.
TEST(TimerPowerFork, ChildsServiceIsWokenByChanges) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  const test::ServiceOutputHidden hidden;
  g_start_ticks();
  g_timer_save_power(1);
  g_timer_init();
  g_add_timer(3'600'000, nullptr, nullptr);
  usleep(50000);
  for (int i = 0; i < 10; ++i) {
    const pid_t pid = fork();
    if (pid == 0) {
      alarm(30);
      if (g_timer_save_power(1) != 1) _exit(1);
      if (g_timer_enable(1) != 0) _exit(2);
      usleep(30000);  // its thread is in a long sleep
      fired = 0;
      g_add_timer(20, fire, nullptr);
      int waited = 0;
      while (fired < 3 && waited < 5000) {
        usleep(1000);
        ++waited;
      }
      if (fired < 3) _exit(3);  // would be up to ten seconds late
      g_timer_cleanup();
      _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    if (status != 0) break;
  }
  g_timer_cleanup();
  g_timer_save_power(0);
}

}  // namespace
