// Thread handles. No state but the handles themselves, and no locks.
//
// A handle may be freed while its thread is still starting, so the thread and the owner
// share it until the thread has read what to run; whoever lets go last frees it.
//
// SPDX-License-Identifier: MIT

#include <groundwork/thread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sched.h>

#include "core/check.h"
#include "thread/own_thread.h"

struct GThread {
  pthread_t tid;
  GThreadFunc func;
  void* arg;
  std::atomic<int> users;  // owner, and the thread while it starts
  bool exists;             // false when the system could not start the thread
};
static_assert(offsetof(GThread, tid) == 0 && offsetof(GThread, func) == sizeof(pthread_t) &&
              offsetof(GThread, arg) == sizeof(pthread_t) + sizeof(void*) &&
              std::atomic<int>::is_always_lock_free);

namespace {

constexpr char kSource[] = "g_thread";

GThread* new_handle(int users) {
  auto* const thread = static_cast<GThread*>(std::calloc(1, sizeof(GThread)));
  if (thread != nullptr) thread->users.store(users, std::memory_order_relaxed);
  return thread;
}

void let_go(GThread* thread) {
  if (thread->users.fetch_sub(1, std::memory_order_acq_rel) == 1) std::free(thread);
}

// Not noexcept: cancellation and pthread_exit() unwind through this frame.
void* run(void* handle) {
  auto* const thread = static_cast<GThread*>(handle);
  const GThreadFunc func = thread->func;
  void* const arg = thread->arg;
  let_go(thread);
  func(arg);
  return nullptr;
}

}  // namespace

bool groundwork::is_own_thread(const GThread* thread) {
  return thread->exists && pthread_equal(thread->tid, pthread_self()) != 0;
}

void groundwork::free_own_thread(GThread* thread) {
  pthread_detach(pthread_self());
  g_thread_free(thread);
}

extern "C" GThread* g_thread_create(GThreadFunc func, void* arg, const char*) {
  CHECK_ARG(func != NULL, nullptr);
  GThread* const thread = new_handle(2);
  if (thread == nullptr) return nullptr;
  thread->func = func;
  thread->arg = arg;
  thread->exists = pthread_create(&thread->tid, nullptr, run, thread) == 0;
  // Kept: a thread that could not be started has a handle too; callers take any handle for
  // success.
  if (!thread->exists) {
    thread->tid = {};
    let_go(thread);
  }
  return thread;
}

extern "C" int g_thread_wait(GThread* thread) {
  CHECK_ARG(thread != NULL, -1);
  if (thread->exists) pthread_join(thread->tid, nullptr);
  g_thread_free(thread);
  return 0;
}

extern "C" int g_thread_cancel(GThread* thread) {
  CHECK_ARG(thread != NULL, -1);
  if (thread->exists) pthread_cancel(thread->tid);
  return 0;
}

extern "C" void g_thread_free(GThread* thread) {
  if (thread != nullptr) let_go(thread);
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
  // Some systems keep more than the priority in the parameters; the rest stays.
  int policy = SCHED_OTHER;
  sched_param param{};
  if (thread->exists) pthread_getschedparam(thread->tid, &policy, &param);

  policy = priority == 0 ? SCHED_OTHER : priority == 6 ? SCHED_FIFO : SCHED_RR;
  const int max = sched_get_priority_max(policy);
  const int min = sched_get_priority_min(policy);
  const int mid = (min + max) / 2;
  const int step = (max - mid) / 3;
  const std::array<int, 7> scale = {min,        mid - 2 * step, mid - step, mid,
                                    mid + step, mid + 2 * step, max};
  const auto index = static_cast<unsigned>(priority);
  if (index >= scale.size()) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "unknown priority %d", priority);
    return -1;
  }
  param.sched_priority = scale[index];

  bool is_set = false;
  if (thread->exists) {
    is_set = pthread_setschedparam(thread->tid, policy, &param) == 0;
  } else {
    errno = ESRCH;
  }
  if (!is_set) {
    // Kept: the text is that of errno, not that of the returned code.
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't set priority to %d. - %s.", priority,
          std::strerror(errno));
    return -1;
  }
  return 0;
}
