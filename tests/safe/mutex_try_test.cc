// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

#include "support/log_capture.h"
#include "support/next_function.h"

using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

thread_local int refusal = 0;

}  // namespace

extern "C" int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  if (refusal != 0) return refusal;
  static auto* const function =
      test::next_function<decltype(pthread_mutex_trylock)>("pthread_mutex_trylock");
  return function(mutex);
}

namespace {

class MutexTry : public ::testing::Test {
 protected:
  ~MutexTry() override { g_thread_mutex_free(mutex); }

  int try_on_another_thread() {
    int result = -7;
    std::thread([&] {
      result = g_thread_mutex_try(mutex);
      if (result == 0) g_thread_mutex_unlock(mutex);
    }).join();
    return result;
  }

  GMutex* const mutex = g_thread_mutex_new();
};

TEST_F(MutexTry, LocksAFreeMutex) {
  EXPECT_EQ(g_thread_mutex_try(mutex), 0);
  EXPECT_EQ(try_on_another_thread(), 1);
  EXPECT_EQ(g_thread_mutex_unlock(mutex), 0);
  EXPECT_EQ(try_on_another_thread(), 0);
}

TEST_F(MutexTry, ReportsABusyMutexAndLeavesErrnoAndTheLogAlone) {
  LogCapture log(0);
  g_thread_mutex_lock(mutex);
  errno = 77;
  EXPECT_EQ(g_thread_mutex_try(mutex), 1);  // held by the caller is busy, too
  EXPECT_EQ(errno, 77);
  EXPECT_EQ(try_on_another_thread(), 1);
  EXPECT_EQ(log.take(), Lines{});
  g_thread_mutex_unlock(mutex);
}

TEST_F(MutexTry, NullMutexReportsTheCheckAndReturnsMinusOne) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_thread_mutex_try(nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_thread", "mutex != NULL")});
}

TEST_F(MutexTry, SystemsRefusalIsMinusOneWithItsErrno) {
  LogCapture log(0);
  refusal = EAGAIN;
  errno = 0;
  EXPECT_EQ(g_thread_mutex_try(mutex), -1);
  EXPECT_EQ(errno, EAGAIN);
  refusal = 0;
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(try_on_another_thread(), 0);
}

TEST_F(MutexTry, OnlyOneThreadHoldsIt) {
  long count = 0;  // guarded by the mutex
  std::atomic<long> taken{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 20000; ++n) {
        if (g_thread_mutex_try(mutex) != 0) continue;
        ++count;
        g_thread_mutex_unlock(mutex);
        ++taken;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(taken, 0);
  EXPECT_EQ(count, taken);
}

}  // namespace
