// fork() in a program with threads: a child has the library's state and, of its threads,
// only the one that forked.
//
// A child that hangs is ended by its alarm, which the parent sees. Children use nothing of
// GoogleTest: they say by their exit status what they found.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/timeout.h>
#include <groundwork/timer.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/auxv.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/next_function.h"
#include "support/service_output.h"
#include "support/threads_of_children.h"

namespace {

constexpr unsigned kPatience = 30;  // seconds, for a child

// Called before the next thread is created, once; g_timeout_new() holds its lock then.
std::atomic<void (*)()> on_creation{nullptr};

}  // namespace

extern "C" int pthread_create(pthread_t* id, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* arg) noexcept {
  static auto* const function =
      test::next_function<decltype(pthread_create)>("pthread_create");
  if (auto* const action = on_creation.exchange(nullptr)) action();
  return function(id, attributes, start, arg);
}

namespace {

// Forks and returns the exit status that the child chose, or the negative number of the
// signal that ended it.
template <typename Child>
int status_of_child(Child child) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(kPatience);
    const int status = child();
    _exit(status);
  }
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int service_pid() {
  return __atomic_load_n(&g_timer_pid, __ATOMIC_RELAXED);
}

template <typename Predicate>
void await(Predicate is_so) {
  while (!is_so()) usleep(500);
}

std::atomic<int> fired{0};

uint32_t fire(uint32_t interval, void*) {
  ++fired;
  return interval;
}

std::atomic<int> beats{0};

int beat(void*) {
  ++beats;
  return 1;
}

class ForkWithTimers : public ::testing::Test {
 protected:
  ForkWithTimers() {
    fired = 0;
    g_start_ticks();
    EXPECT_EQ(g_timer_init(), 0);
    await([] { return service_pid() != 0; });
  }
  ~ForkWithTimers() override { g_timer_cleanup(); }

  test::ServiceOutputHidden output_;
};

TEST_F(ForkWithTimers, ChildFindsTheServiceStoppedAndTheTimersKept) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  g_add_timer(10, fire, nullptr);
  EXPECT_EQ(status_of_child([] {
              if (service_pid() != 0) return 1;
              fired = 0;
              usleep(50000);
              if (fired != 0) return 2;
              if (g_timer_enable(1) != 0) return 3;
              await([] { return fired >= 3; });
              return service_pid() == getpid() ? 0 : 4;
            }),
            0);
  // The parent's goes on.
  fired = 0;
  await([] { return fired > 0; });
  EXPECT_EQ(service_pid(), getpid());
}

TEST_F(ForkWithTimers, ChildMayInitTheServiceAndCleanItUp) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  g_add_timer(10, fire, nullptr);
  EXPECT_EQ(status_of_child([] {
              if (g_timer_init() != 0) return 1;
              if (g_timer_init() != -1) return 2;
              fired = 0;
              await([] { return fired > 0; });
              g_timer_cleanup();
              if (service_pid() != 0) return 3;
              if (g_add_timer(10, fire, nullptr) != nullptr) return 4;
              // And once more from nothing.
              if (g_timer_init() != 0) return 5;
              fired = 0;
              if (g_add_timer(10, fire, nullptr) == nullptr) return 6;
              await([] { return fired > 0; });
              g_timer_cleanup();
              return 0;
            }),
            0);
}

TEST_F(ForkWithTimers, ChildMayCleanUpWhatItInherited) {
  GTimerEntry* const id = g_add_timer(10, fire, nullptr);
  EXPECT_EQ(status_of_child([&] {
              if (g_remove_timer(id) != 1) return 1;
              g_timer_cleanup();
              return g_add_timer(10, fire, nullptr) == nullptr ? 0 : 2;
            }),
            0);
}

TEST_F(ForkWithTimers, GrandchildFindsTheServiceStoppedToo) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  g_add_timer(10, fire, nullptr);
  EXPECT_EQ(status_of_child([] {
              if (g_timer_enable(1) != 0) return 1;
              await([] { return service_pid() == getpid(); });
              return status_of_child([] {
                if (service_pid() != 0 || g_timer_enable(1) != 0) return 2;
                fired = 0;
                await([] { return fired > 0; });
                g_timer_cleanup();
                return 0;
              });
            }),
            0);
}

// Clearing a long list keeps its lock for a while.
TEST_F(ForkWithTimers, ChildNeverFindsTheTimersLocked) {
  std::atomic<bool> done{false};
  std::thread busy([&] {
    while (!done) {
      for (int i = 0; i < 2000; ++i) g_add_timer(1000, nullptr, nullptr);
      g_set_timer(0, nullptr);
    }
  });
  for (int i = 0; i < 150; ++i) {
    const int status = status_of_child([] {
      alarm(kPatience);
      if (g_add_timer(1000, fire, nullptr) == nullptr) return 1;
      g_timer_cleanup();
      return 0;
    });
    EXPECT_EQ(status, 0) << "fork " << i;
    if (status != 0) break;
  }
  done = true;
  busy.join();
}

TEST_F(ForkWithTimers, ThreadsMayForkAtTheSameTime) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 20; ++n) {
        failures += status_of_child([] {
                      if (g_timer_enable(1) != 0) return 1;
                      g_timer_cleanup();
                      return 0;
                    }) != 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

int status_of_callbacks_child = -1;

// The child's only thread is the service's.
TEST_F(ForkWithTimers, ChildOfACallbackIsTheServiceItself) {
  static std::atomic<bool> is_done;
  is_done = false;
  g_add_timer(
      10,
      [](uint32_t interval, void*) -> uint32_t {
        static bool is_child = false;
        if (is_child) {
          _exit(service_pid() == getpid() && g_timer_enable(1) == 0 ? 42 : 1);
        }
        const pid_t pid = fork();
        if (pid == 0) {
          alarm(kPatience);
          is_child = true;  // goes back to the service, which calls again
          return interval;
        }
        int status = 0;
        waitpid(pid, &status, 0);
        status_of_callbacks_child = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        is_done = true;
        return 0;
      },
      nullptr);
  await([] { return is_done.load(); });
  EXPECT_EQ(status_of_callbacks_child, 42);
}

// What a server does: set up first, then go into the background.
TEST(Fork, TimersOfADaemonRunOnceTheyAreEnabledAgain) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  for (const bool by_init : {false, true}) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    EXPECT_EQ(status_of_child([&] {
                g_start_ticks();
                if (g_timer_init() != 0) return 1;
                if (g_add_timer(20, fire, nullptr) == nullptr) return 2;
                if (daemon(1, 0) != 0) return 3;
                alarm(kPatience);
                if ((by_init ? g_timer_init() : g_timer_enable(1)) != 0) return 4;
                fired = 0;
                await([] { return fired >= 3; });
                g_timer_cleanup();
                return write(ends[1], "3", 1) == 1 ? 0 : 5;
              }),
              0);
    close(ends[1]);
    char message = '-';
    EXPECT_EQ(read(ends[0], &message, 1), 1);  // the end of the pipe if the daemon is gone
    EXPECT_EQ(message, '3');
    close(ends[0]);
  }
}

TEST(Fork, ChildMayFreeInheritedTimeouts) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  GTimeout* const first = g_timeout_new("first", 10, beat, nullptr);
  GTimeout* const second = g_timeout_new("second", 100000, beat, nullptr);
  EXPECT_EQ(status_of_child([&] {
              g_debug_set_level2(G_LOG_SILENT);
              if (g_timeout_set_priority(first, 0) != -1)
                return 1;  // it has no thread here
              g_timeout_free(second);
              g_timeout_free(first);
              beats = 0;
              GTimeout* const own = g_timeout_new("own", 10, beat, nullptr);
              await([] { return beats >= 3; });
              g_timeout_free(own);
              return 0;
            }),
            0);
  beats = 0;
  await([] { return beats > 0; });  // the parent's go on
  g_timeout_free(first);
  g_timeout_free(second);
}

// The thread is created under the lock of the list: fork() waits for that.
TEST(Fork, ChildFindsTheListOfTimeoutsUnlocked) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  static std::atomic<bool> is_locked;
  for (int i = 0; i < 20; ++i) {
    is_locked = false;
    std::thread busy([] {
      on_creation = [] {
        is_locked = true;
        usleep(2000);
      };
      g_timeout_free(g_timeout_new("busy", 1000, beat, nullptr));
    });
    // The thread itself was created before it set the action.
    await([] { return is_locked.load(); });
    const int status = status_of_child([] {
      GTimeout* const own = g_timeout_new("own", 1000, beat, nullptr);
      if (own == nullptr) return 1;
      g_timeout_free(own);
      return 0;
    });
    busy.join();
    EXPECT_EQ(status, 0) << "fork " << i;
    if (status != 0) break;
  }
}

// Freeing a timeout cancels its thread, which is unwound. In a static program with glibc
// that takes a lock of the compiler's library, and a child that is forked meanwhile finds
// it locked.
bool unwinding_takes_locks() {
#ifdef __GLIBC__
  return getauxval(AT_BASE) == 0;  // nothing was loaded by a loader
#else
  return false;  // cancelled threads are not unwound
#endif
}

TEST(Fork, ChildrenAreForkedWhileTimeoutsComeAndGo) {
  SKIP_UNLESS_CHILDREN_MAY_START_THREADS();
  if (unwinding_takes_locks()) {
    GTEST_SKIP() << "a static program cannot cancel a thread in such a child";
  }
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      while (!done) {
        GTimeout* const timeout = g_timeout_new("busy", 1000, beat, nullptr);
        if (timeout != nullptr) g_timeout_free(timeout);
      }
    });
  }
  GTimeout* const inherited = g_timeout_new("inherited", 1, beat, nullptr);
  for (int i = 0; i < 150; ++i) {
    const int status = status_of_child([&] {
      g_timeout_free(inherited);
      GTimeout* const own = g_timeout_new("own", 1000, beat, nullptr);
      if (own == nullptr) return 1;
      g_timeout_free(own);
      return 0;
    });
    EXPECT_EQ(status, 0) << "fork " << i;
    if (status != 0) break;
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  g_timeout_free(inherited);
}

int status_of_timeouts_child = -1;

TEST(Fork, ChildOfATimeoutsFunctionIsThatTimeout) {
  static std::atomic<bool> is_done;
  is_done = false;
  GTimeout* const other = g_timeout_new("other", 10, beat, nullptr);
  static GTimeout* inherited;
  inherited = other;
  GTimeout* const timeout = g_timeout_new(
      "forks", 10,
      [](void*) {
        static bool is_child = false;
        if (is_done) return 1;
        if (is_child) _exit(42);
        const pid_t pid = fork();
        if (pid == 0) {
          alarm(kPatience);
          g_timeout_free(inherited);
          is_child = true;  // the next call comes after the interval
          return 1;
        }
        int status = 0;
        waitpid(pid, &status, 0);
        status_of_timeouts_child = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        is_done = true;
        return 1;
      },
      nullptr);
  await([] { return is_done.load(); });
  EXPECT_EQ(status_of_timeouts_child, 42);
  g_timeout_free(timeout);
  g_timeout_free(other);
}

TEST(Fork, ChildMayLog) {
  std::atomic<bool> done{false};
  g_debug_set_handler([](const char*, void*) { return 0; }, nullptr);
  std::thread busy([&] {
    while (!done) g_log(G_LOG_ERROR, "fork_test", __LINE__, "busy");
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(
        status_of_child([] { return g_log(G_LOG_ERROR, "fork_test", __LINE__, "child"); }),
        0);
  }
  done = true;
  busy.join();
  g_debug_set_handler(nullptr, nullptr);
}

}  // namespace
