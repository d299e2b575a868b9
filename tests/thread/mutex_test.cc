// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/thread.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

#include "support/allocation_faults.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

// What the POSIX calls of this thread return instead of their result; 0 leaves them alone.
thread_local int forced_result = 0;
thread_local bool destroy_fails = false;

int forced() {
  errno = EPERM;
  return forced_result;
}

}  // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_mutex_lock)>("pthread_mutex_lock");
  return forced_result != 0 ? forced() : function(mutex);
}

extern "C" int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_mutex_trylock)>("pthread_mutex_trylock");
  return forced_result != 0 ? forced() : function(mutex);
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_mutex_unlock)>("pthread_mutex_unlock");
  return forced_result != 0 ? forced() : function(mutex);
}

extern "C" int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_mutex_destroy)>("pthread_mutex_destroy");
  const int result = function(mutex);
  if (!destroy_fails) return result;
  errno = EBUSY;
  return EINVAL;
}

namespace {

// Whether another thread could lock the mutex without waiting: the handle is a
// pthread_mutex_t.
bool is_free(GMutex* mutex) {
  bool free = false;
  std::thread([&] {
    auto* const raw = reinterpret_cast<pthread_mutex_t*>(mutex);
    free = pthread_mutex_trylock(raw) == 0;
    if (free) pthread_mutex_unlock(raw);
  }).join();
  return free;
}

TEST(Mutex, IsAZeroedPthreadMutexOnTheHeap) {
  AllocationFaults faults(0);
  GMutex* const mutex = g_thread_mutex_new();
  faults.disarm();
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(test::allocation_size(1), sizeof(pthread_mutex_t));
  EXPECT_TRUE(is_free(mutex));
  g_thread_mutex_free(mutex);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(Mutex, ExhaustedHeapGivesNullSilently) {
  LogCapture log;
  AllocationFaults faults(1);
  GMutex* const mutex = g_thread_mutex_new();
  faults.disarm();
  EXPECT_EQ(mutex, nullptr);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Mutex, ExcludesOtherThreads) {
  GMutex* const mutex = g_thread_mutex_new();
  long counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 5000; ++n) {
        EXPECT_EQ(g_thread_mutex_lock(mutex), 0);
        ++counter;
        EXPECT_EQ(g_thread_mutex_unlock(mutex), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 20000);
  g_thread_mutex_free(mutex);
}

TEST(Mutex, LockHoldsAndUnlockReleases) {
  GMutex* const mutex = g_thread_mutex_new();
  EXPECT_EQ(g_thread_mutex_lock(mutex), 0);
  EXPECT_FALSE(is_free(mutex));
  EXPECT_EQ(g_thread_mutex_unlock(mutex), 0);
  EXPECT_TRUE(is_free(mutex));
  g_thread_mutex_free(mutex);
}

// A recursive mutex would let its owner in again, an error-checking one call it a deadlock.
TEST(Mutex, IsOfTheDefaultKindWhichItsOwnerCannotTakeTwice) {
  GMutex* const mutex = g_thread_mutex_new();
  g_thread_mutex_lock(mutex);
  EXPECT_EQ(pthread_mutex_trylock(reinterpret_cast<pthread_mutex_t*>(mutex)), EBUSY);
  g_thread_mutex_unlock(mutex);
  g_thread_mutex_free(mutex);
}

TEST(Mutex, TrylockTakesAFreeMutex) {
  GMutex* const mutex = g_thread_mutex_new();
  EXPECT_EQ(g_thread_mutex_trylock(mutex), 0);
  EXPECT_FALSE(is_free(mutex));
  g_thread_mutex_unlock(mutex);
  g_thread_mutex_free(mutex);
}

TEST(Mutex, TrylockOfABusyMutexReturnsZeroToo) {
  LogCapture log;
  GMutex* const mutex = g_thread_mutex_new();
  g_thread_mutex_lock(mutex);
  std::thread([&] { EXPECT_EQ(g_thread_mutex_trylock(mutex), 0); }).join();
  EXPECT_FALSE(is_free(mutex));
  EXPECT_EQ(log.take(), Lines{});
  g_thread_mutex_unlock(mutex);
  g_thread_mutex_free(mutex);
}

TEST(Mutex, PositiveResultsCountAsSuccess) {
  LogCapture log;
  GMutex* const mutex = g_thread_mutex_new();
  forced_result = EINVAL;
  const int results[] = {g_thread_mutex_lock(mutex), g_thread_mutex_trylock(mutex),
                         g_thread_mutex_unlock(mutex)};
  forced_result = 0;
  for (const int result : results) EXPECT_EQ(result, 0);
  EXPECT_EQ(log.take(), Lines{});
  g_thread_mutex_free(mutex);
}

// The capture's handler locks a mutex itself, so it must not see the forced result.
int collect_one(const char* text, void* lines) {
  const int result = forced_result;
  forced_result = 0;
  static_cast<Lines*>(lines)->emplace_back(text);
  forced_result = result;
  return 0;
}

TEST(Mutex, NegativeResultsAreFailuresWithTheTextOfErrno) {
  Lines lines;
  GMutex* const mutex = g_thread_mutex_new();
  g_debug_set_handler(collect_one, &lines);
  forced_result = -1;
  const int results[] = {g_thread_mutex_lock(mutex), g_thread_mutex_trylock(mutex),
                         g_thread_mutex_unlock(mutex)};
  forced_result = 0;
  g_debug_set_handler(nullptr, nullptr);
  for (const int result : results) EXPECT_EQ(result, -1);
  const std::string reason = std::strerror(EPERM);
  const std::string expected[] = {"[WARNING] can't lock mutex - " + reason,
                                  "[WARNING] can't lock mutex - " + reason,
                                  "[WARNING] can't unlock mutex - " + reason};
  ASSERT_EQ(lines.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(lines[i].rfind("g_thread:", 0), 0u);
    EXPECT_NE(lines[i].find(expected[i]), std::string::npos) << lines[i];
  }
  g_thread_mutex_free(mutex);
}

TEST(Mutex, NullReportsTheCheck) {
  LogCapture log;
  const Lines line{check_line("g_thread", "mutex != NULL")};
  EXPECT_EQ(g_thread_mutex_lock(nullptr), -1);
  EXPECT_EQ(log.take(), line);
  EXPECT_EQ(g_thread_mutex_trylock(nullptr), -1);
  EXPECT_EQ(log.take(), line);
  EXPECT_EQ(g_thread_mutex_unlock(nullptr), -1);
  EXPECT_EQ(log.take(), line);
  g_thread_mutex_free(nullptr);
  EXPECT_EQ(log.take(), line);
}

// It is locked first: the C library would count one unlock too many as a user.
TEST(MutexFree, OfAnUnlockedMutexLogsNothing) {
  LogCapture log;
  g_thread_mutex_free(g_thread_mutex_new());
  GMutex* const mutex = g_thread_mutex_new();
  g_thread_mutex_lock(mutex);
  g_thread_mutex_unlock(mutex);
  g_thread_mutex_free(mutex);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(MutexFree, UnlocksAMutexThatIsHeld) {
  LogCapture log;
  AllocationFaults faults(0);
  GMutex* const mutex = g_thread_mutex_new();
  g_thread_mutex_lock(mutex);
  g_thread_mutex_free(mutex);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(MutexFree, FailedDestructionIsLoggedWithTheTextOfErrnoAndTheMemoryIsFreed) {
  LogCapture log;
  AllocationFaults faults(0);
  GMutex* const mutex = g_thread_mutex_new();
  faults.disarm();
  destroy_fails = true;
  g_thread_mutex_free(mutex);
  destroy_fails = false;
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(log.take(),
            Lines{warning_line(
                "g_thread", std::string("can't destroy mutex - ") + std::strerror(EBUSY))});
}

// The thread sanitizer rightly objects to such a program.
#if !defined(__SANITIZE_THREAD__)
TEST(MutexFree, UnlocksAMutexThatAnotherThreadHolds) {
  LogCapture log;
  GMutex* const mutex = g_thread_mutex_new();
  std::thread([&] { g_thread_mutex_lock(mutex); }).join();
  g_thread_mutex_free(mutex);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Mutex, UnlockReleasesAMutexThatAnotherThreadHolds) {
  GMutex* const mutex = g_thread_mutex_new();
  std::thread([&] { g_thread_mutex_lock(mutex); }).join();
  EXPECT_EQ(g_thread_mutex_unlock(mutex), 0);
  EXPECT_TRUE(is_free(mutex));
  g_thread_mutex_free(mutex);
}
#endif

}  // namespace
