// SPDX-License-Identifier: MIT

#include <groundwork/thread.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

std::atomic<bool> creation_fails{false};
std::atomic<bool> scheduling_is_refused{false};
std::atomic<bool> asked_for_attributes{false};
std::atomic<bool> ends_badly{false};  // joining and cancelling return an error
std::atomic<int> joins{0};
std::atomic<int> cancellations{0};
std::atomic<pthread_t> asked_thread{};
std::atomic<int> asked_policy{-1};
std::atomic<int> asked_priority{-1};

}  // namespace

extern "C" int pthread_create(pthread_t* id, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* arg) noexcept {
  if (creation_fails) {
    std::memset(id, 0x5a, sizeof *id);  // POSIX leaves it undefined
    return EAGAIN;
  }
  asked_for_attributes = attributes != nullptr;
  return test::next_function<decltype(pthread_create)>("pthread_create")(id, attributes,
                                                                         start, arg);
}

extern "C" int pthread_join(pthread_t id, void** result) {
  ++joins;
  const int error = test::next_function<decltype(pthread_join)>("pthread_join")(id, result);
  return ends_badly ? EINVAL : error;
}

extern "C" int pthread_cancel(pthread_t id) {
  ++cancellations;
  const int error = test::next_function<decltype(pthread_cancel)>("pthread_cancel")(id);
  return ends_badly ? ESRCH : error;
}

// Records what is asked for. Grants it without need of privileges, or refuses with an errno
// that is not the returned code.
extern "C" int pthread_setschedparam(pthread_t id, int policy,
                                     const sched_param* param) noexcept {
  asked_thread = id;
  asked_policy = policy;
  asked_priority = param->sched_priority;
  if (!scheduling_is_refused) return 0;
  errno = EACCES;
  return EPERM;
}

namespace {

void* store_one(void* arg) {
  static_cast<std::atomic<int>*>(arg)->store(1);
  return arg;
}

void* sleep_for_ever(void* arg) {
  if (arg != nullptr) sem_post(static_cast<sem_t*>(arg));
  for (;;) pause();
}

TEST(ThreadCreate, RunsTheFunctionWithItsArgument) {
  std::atomic<int> seen{0};
  GThread* const thread = g_thread_create(store_one, &seen, "worker");
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(g_thread_wait(thread), 0);
  EXPECT_EQ(seen.load(), 1);
}

TEST(ThreadCreate, NullNameIsFine) {
  std::atomic<int> seen{0};
  EXPECT_EQ(g_thread_wait(g_thread_create(store_one, &seen, nullptr)), 0);
  EXPECT_EQ(seen.load(), 1);
}

TEST(ThreadCreate, NullFunctionReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_thread_create(nullptr, nullptr, "x"), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_thread", "func != NULL")});
}

TEST(ThreadCreate, HandleBeginsWithTheThreadId) {
  static std::atomic<pthread_t> id;
  GThread* const thread = g_thread_create(
      [](void*) -> void* {
        id = pthread_self();
        return nullptr;
      },
      nullptr, "id");
  ASSERT_NE(thread, nullptr);
  const pthread_t stored = *reinterpret_cast<pthread_t*>(thread);
  g_thread_wait(thread);
  EXPECT_EQ(stored, id.load());
}

// The front of a handle.
struct Front {
  pthread_t tid;
  GThreadFunc func;
  void* arg;
};

const Front& front_of(const GThread* thread) {
  return *reinterpret_cast<const Front*>(thread);
}

TEST(ThreadCreate, HandleHoldsTheFunctionAndItsArgument) {
  std::atomic<int> seen{0};
  GThread* const thread = g_thread_create(store_one, &seen, "worker");
  while (seen == 0) sched_yield();
  EXPECT_EQ(front_of(thread).func, &store_one);
  EXPECT_EQ(front_of(thread).arg, &seen);
  g_thread_wait(thread);
}

TEST(ThreadCreate, AsksForNoAttributes) {
  std::atomic<int> seen{0};
  asked_for_attributes = true;
  g_thread_wait(g_thread_create(store_one, &seen, "worker"));
  EXPECT_FALSE(asked_for_attributes);
}

TEST(ThreadCreate, ResultOfTheFunctionIsDropped) {
  std::atomic<int> seen{0};
  GThread* const thread = g_thread_create(store_one, &seen, "worker");
  void* result = &seen;
  EXPECT_EQ(pthread_join(front_of(thread).tid, &result), 0);
  EXPECT_EQ(result, nullptr);
  g_thread_free(thread);
}

TEST(ThreadCreate, ThreadThatCannotStartHasAHandleThatIsHarmless) {
  LogCapture log;
  AllocationFaults faults(0);
  std::atomic<int> seen{0};
  creation_fails = true;
  GThread* const thread = g_thread_create(store_one, &seen, "worker");
  creation_fails = false;
  faults.disarm();
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(log.take(), Lines{});
  joins = 0;
  cancellations = 0;
  EXPECT_EQ(g_thread_cancel(thread), 0);
  EXPECT_EQ(g_thread_set_priority(thread, 0), -1);
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_thread", std::string("can't set priority to 0. - ") +
                                               std::strerror(ESRCH) + ".")});
  EXPECT_EQ(g_thread_wait(thread), 0);
  EXPECT_EQ(joins.load(), 0);
  EXPECT_EQ(cancellations.load(), 0);
  EXPECT_EQ(seen.load(), 0);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(ThreadCreate, ExhaustedHeapGivesNull) {
  LogCapture log;
  AllocationFaults faults(1, true);
  GThread* const thread = g_thread_create(store_one, nullptr, "worker");
  GThread* const self = g_thread_self();
  faults.disarm();
  EXPECT_EQ(faults.failures(), 2);
  EXPECT_EQ(thread, nullptr);
  EXPECT_EQ(self, nullptr);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(ThreadCreate, HandleMayBeFreedWhileTheThreadStarts) {
  test::warm_up_threads();
  AllocationFaults faults(0);
  for (int i = 0; i < 200; ++i) {
    sem_t done;
    sem_init(&done, 0, 0);
    GThread* const thread = g_thread_create(
        [](void* arg) -> void* {
          pthread_detach(pthread_self());
          sem_post(static_cast<sem_t*>(arg));
          return nullptr;
        },
        &done, "brief");
    ASSERT_NE(thread, nullptr);
    g_thread_free(thread);
    while (sem_wait(&done) != 0) {
    }
    sem_destroy(&done);
  }
  faults.disarm();
  // Each has released its handle; the C library keeps a block with each stack that it
  // caches.
  EXPECT_LE(faults.outstanding(), 20);
}

TEST(ThreadWait, FreesTheHandle) {
  test::warm_up_threads();
  std::atomic<int> seen{0};
  AllocationFaults faults(0);
  GThread* const thread = g_thread_create(store_one, &seen, "worker");
  EXPECT_EQ(g_thread_wait(thread), 0);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(ThreadWait, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_thread_wait(nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_thread", "thread != NULL")});
}

TEST(ThreadWait, ThreadThatLeavesByPthreadExitIsWaitedFor) {
  std::atomic<int> seen{0};
  GThread* const thread = g_thread_create(
      [](void* arg) -> void* {
        store_one(arg);
        pthread_exit(nullptr);
      },
      &seen, "leaver");
  EXPECT_EQ(g_thread_wait(thread), 0);
  EXPECT_EQ(seen.load(), 1);
}

TEST(ThreadCancel, StopsAThreadAtItsNextCancellationPoint) {
  sem_t running;
  sem_init(&running, 0, 0);
  GThread* const thread = g_thread_create(sleep_for_ever, &running, "sleeper");
  while (sem_wait(&running) != 0) {
  }
  EXPECT_EQ(g_thread_cancel(thread), 0);
  EXPECT_EQ(g_thread_wait(thread), 0);
  sem_destroy(&running);
}

TEST(ThreadCancel, IsDeferredUntilACancellationPoint) {
  struct Shared {
    sem_t cancelled;
    std::atomic<bool> went_on{false};
    int type = -1;
  } shared;
  sem_init(&shared.cancelled, 0, 0);
  GThread* const thread = g_thread_create(
      [](void* arg) -> void* {
        auto* const s = static_cast<Shared*>(arg);
        // Not a local: the address sanitizer would still guard it after the jump out.
        pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &s->type);
        while (sem_trywait(&s->cancelled) != 0) sched_yield();
        s->went_on = true;
        pthread_testcancel();
        s->went_on = false;
        return nullptr;
      },
      &shared, "worker");
  EXPECT_EQ(g_thread_cancel(thread), 0);
  sem_post(&shared.cancelled);
  g_thread_wait(thread);
  EXPECT_EQ(shared.type, PTHREAD_CANCEL_DEFERRED);
  EXPECT_TRUE(shared.went_on);
  sem_destroy(&shared.cancelled);
}

TEST(ThreadCancel, RunsTheCleanupHandlersOfTheThread) {
  static std::atomic<bool> cleaned;
  cleaned = false;
  GThread* const thread = g_thread_create(
      [](void*) -> void* {
        pthread_cleanup_push([](void*) { cleaned = true; }, nullptr);
        sleep_for_ever(nullptr);
        pthread_cleanup_pop(0);
        return nullptr;
      },
      nullptr, "worker");
  g_thread_cancel(thread);
  g_thread_wait(thread);
  EXPECT_TRUE(cleaned);
}

TEST(ThreadCancel, OfAnEndedThreadReturnsZero) {
  std::atomic<int> seen{0};
  GThread* const thread = g_thread_create(store_one, &seen, "worker");
  while (seen == 0) sched_yield();
  EXPECT_EQ(g_thread_cancel(thread), 0);
  EXPECT_EQ(g_thread_wait(thread), 0);
}

TEST(Thread, FailuresToCancelAndToJoinAreIgnored) {
  LogCapture log;
  std::atomic<int> seen{0};
  GThread* const thread = g_thread_create(store_one, &seen, "worker");
  ends_badly = true;
  EXPECT_EQ(g_thread_cancel(thread), 0);
  EXPECT_EQ(g_thread_wait(thread), 0);
  ends_badly = false;
  EXPECT_EQ(log.take(), Lines{});
}

TEST(ThreadCancel, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_thread_cancel(nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_thread", "thread != NULL")});
}

TEST(ThreadFree, LeavesTheThreadToBeJoined) {
  sem_t go_on;
  sem_init(&go_on, 0, 0);
  GThread* const thread = g_thread_create(
      [](void* arg) -> void* {
        while (sem_wait(static_cast<sem_t*>(arg)) != 0) {
        }
        return nullptr;
      },
      &go_on, "worker");
  const pthread_t id = front_of(thread).tid;
  joins = 0;
  g_thread_free(thread);
  EXPECT_EQ(joins.load(), 0);
  int state = -1;
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_getattr_np(id, &attributes), 0);
  EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &state), 0);
  EXPECT_EQ(state, PTHREAD_CREATE_JOINABLE);
  pthread_attr_destroy(&attributes);
  sem_post(&go_on);
  if (state == PTHREAD_CREATE_JOINABLE) pthread_join(id, nullptr);
  sem_destroy(&go_on);
}

TEST(ThreadFree, NullIsIgnored) {
  LogCapture log;
  g_thread_free(nullptr);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(ThreadSelf, TwoHandlesOfOneThreadAreTheSame) {
  GThread* const one = g_thread_self();
  GThread* const two = g_thread_self();
  ASSERT_NE(one, nullptr);
  ASSERT_NE(two, nullptr);
  EXPECT_NE(one, two);
  EXPECT_EQ(*reinterpret_cast<pthread_t*>(one), pthread_self());
  EXPECT_EQ(g_thread_check_same(one, two), 1);
  g_thread_free(one);
  g_thread_free(two);
}

TEST(ThreadSelf, HandleHoldsNoFunction) {
  GThread* const self = g_thread_self();
  EXPECT_EQ(front_of(self).func, nullptr);
  EXPECT_EQ(front_of(self).arg, nullptr);
  g_thread_free(self);
}

TEST(ThreadCheckSame, DifferentThreadsDiffer) {
  sem_t running;
  sem_init(&running, 0, 0);
  GThread* const self = g_thread_self();
  GThread* const other = g_thread_create(sleep_for_ever, &running, "other");
  while (sem_wait(&running) != 0) {
  }
  EXPECT_EQ(g_thread_check_same(self, other), 0);
  g_thread_cancel(other);
  g_thread_wait(other);
  g_thread_free(self);
  sem_destroy(&running);
}

TEST(ThreadCheckSame, NullReportsTheCheck) {
  LogCapture log;
  GThread* const self = g_thread_self();
  const std::string line = check_line("g_thread", "(thread1 != NULL) && (thread2 != NULL)");
  EXPECT_EQ(g_thread_check_same(self, nullptr), 0);
  EXPECT_EQ(g_thread_check_same(nullptr, self), 0);
  EXPECT_EQ(g_thread_check_same(nullptr, nullptr), 0);
  EXPECT_EQ(log.take(), (Lines{line, line, line}));
  g_thread_free(self);
}

TEST(ThreadSetPriority, MapsTheSevenStepsOntoTheClasses) {
  const int min = sched_get_priority_min(SCHED_RR);
  const int max = sched_get_priority_max(SCHED_RR);
  ASSERT_EQ(min, 1);
  ASSERT_EQ(max, 99);
  struct Step {
    int policy;
    int value;
  };
  const Step steps[] = {{SCHED_OTHER, 0}, {SCHED_RR, 18}, {SCHED_RR, 34},  {SCHED_RR, 50},
                        {SCHED_RR, 66},   {SCHED_RR, 82}, {SCHED_FIFO, 99}};
  LogCapture log;
  GThread* const self = g_thread_self();
  for (int priority = 0; priority <= 6; ++priority) {
    EXPECT_EQ(g_thread_set_priority(self, priority), 0) << priority;
    EXPECT_EQ(asked_policy.load(), steps[priority].policy) << priority;
    EXPECT_EQ(asked_priority.load(), steps[priority].value) << priority;
  }
  EXPECT_EQ(log.take(), Lines{});
  g_thread_free(self);
}

TEST(ThreadSetPriority, IsOfTheThreadThatTheHandleNames) {
  sem_t running;
  sem_init(&running, 0, 0);
  GThread* const other = g_thread_create(sleep_for_ever, &running, "other");
  while (sem_wait(&running) != 0) {
  }
  EXPECT_EQ(g_thread_set_priority(other, 2), 0);
  EXPECT_NE(pthread_equal(asked_thread, front_of(other).tid), 0);
  g_thread_cancel(other);
  g_thread_wait(other);
  sem_destroy(&running);
}

TEST(ThreadSetPriority, RefusalIsLoggedWithTheTextOfErrnoNotOfTheCode) {
  LogCapture log;
  GThread* const self = g_thread_self();
  scheduling_is_refused = true;
  EXPECT_EQ(g_thread_set_priority(self, 3), -1);
  scheduling_is_refused = false;
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_thread", std::string("can't set priority to 3. - ") +
                                               std::strerror(EACCES) + ".")});
  g_thread_free(self);
}

TEST(ThreadSetPriority, UnknownPrioritiesAreLoggedAndChangeNothing) {
  GThread* const self = g_thread_self();
  for (const int priority : {7, -1, 2147483647, -2147483647 - 1}) {
    LogCapture log;
    asked_policy = -1;
    EXPECT_EQ(g_thread_set_priority(self, priority), -1);
    EXPECT_EQ(log.take(), Lines{warning_line(
                              "g_thread", "unknown priority " + std::to_string(priority))});
    EXPECT_EQ(asked_policy.load(), -1);
  }
  g_thread_free(self);
}

TEST(ThreadSetPriority, NullReportsTheCheckBeforeThePriority) {
  LogCapture log;
  EXPECT_EQ(g_thread_set_priority(nullptr, 9), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_thread", "thread != NULL")});
}

}  // namespace
