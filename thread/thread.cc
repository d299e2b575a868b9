// Thread handles. No state except the handles, and no locks.
//
// A handle may be freed while its thread is still starting, so the thread holds a reference
// until it has read what to run; the last reference frees the handle.
//
// SPDX-License-Identifier: MIT

#include <groundwork/thread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sched.h>

#include "core/check.h"
#include "thread/service_thread.h"
#include "thread/thread_record.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_thread";
constexpr int kHighest = 6;  // the highest priority; 0 is the lowest

GThread* new_handle(int users) {
  auto* const thread = static_cast<GThread*>(std::calloc(1, sizeof(GThread)));
  if (thread != nullptr) thread->users.store(users, std::memory_order_relaxed);
  return thread;
}

void unref(GThread* thread) {
  if (thread->users.fetch_sub(1, std::memory_order_acq_rel) == 1) std::free(thread);
}

// Not noexcept: cancellation and pthread_exit() unwind through this frame.
void* run(void* handle) {
  auto* const thread = static_cast<GThread*>(handle);
  const GThreadFunc func = thread->func;
  void* const arg = thread->arg;
  unref(thread);
  func(arg);
  return nullptr;
}

int policy_of(int priority) {
  switch (priority) {
    case 0:
      return SCHED_OTHER;
    case kHighest:
      return SCHED_FIFO;
    default:
      return SCHED_RR;
  }
}

// The lowest and the highest have their own policies; those between are spread around the
// middle of theirs.
int posix_priority_of(int priority, int policy) {
  const int max = sched_get_priority_max(policy);
  const int min = sched_get_priority_min(policy);
  if (priority == 0) return min;
  if (priority == kHighest) return max;
  const int mid = (min + max) / 2;
  const int step = (max - mid) / 3;
  return mid + (priority - kHighest / 2) * step;
}

}  // namespace

extern "C" GThread* g_thread_create(GThreadFunc func, void* arg, const char*) {
  CHECK_ARG(func != NULL, nullptr);
  GThread* const thread = new_handle(2);
  if (thread == nullptr) return nullptr;
  thread->func = func;
  thread->arg = arg;
  thread->exists = pthread_create(&thread->tid, nullptr, run, thread) == 0;
  // Kept: a thread that could not be started has a handle, too; callers take any handle for
  // success.
  if (!thread->exists) {
    thread->tid = {};
    unref(thread);
  }
  return thread;
}

extern "C" int g_thread_wait(GThread* thread) {
  CHECK_ARG(thread != NULL, -1);
  join_thread(thread);
  g_thread_free(thread);
  return 0;
}

extern "C" int g_thread_cancel(GThread* thread) {
  CHECK_ARG(thread != NULL, -1);
  if (thread->exists) pthread_cancel(thread->tid);
  return 0;
}

extern "C" void g_thread_free(GThread* thread) {
  if (thread != nullptr) unref(thread);
}

extern "C" GThread* g_thread_self(void) {
  GThread* const thread = new_handle(1);
  if (thread == nullptr) return nullptr;
  thread->tid = pthread_self();
  thread->exists = true;
  return thread;
}

extern "C" int g_thread_check_same(GThread* thread1, GThread* thread2) {
  CHECK_ARG((thread1 != NULL) && (thread2 != NULL), 0);
  return thread1->tid == thread2->tid ? 1 : 0;
}

extern "C" int g_thread_set_priority(GThread* thread, int priority) {
  CHECK_ARG(thread != NULL, -1);
  // On some systems the parameters contain more than the priority; the rest is preserved.
  int policy = SCHED_OTHER;
  sched_param param{};
  if (thread->exists) pthread_getschedparam(thread->tid, &policy, &param);
  if (priority < 0 || priority > kHighest) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "unknown priority %d", priority);
    return -1;
  }
  policy = policy_of(priority);
  param.sched_priority = posix_priority_of(priority, policy);
  if (thread->exists) {
    if (pthread_setschedparam(thread->tid, policy, &param) == 0) return 0;
  } else {
    errno = ESRCH;
  }
  // Kept: the text is that of errno, not of the returned code.
  g_log(G_LOG_WARNING, kSource, __LINE__, "can't set priority to %d. - %s.", priority,
        std::strerror(errno));
  return -1;
}
