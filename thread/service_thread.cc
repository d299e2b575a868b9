// SPDX-License-Identifier: MIT

#include "thread/service_thread.h"

#include <pthread.h>

#include "thread/thread_record.h"

bool groundwork::is_own_thread(const GThread* thread) {
  return thread->exists && pthread_equal(thread->tid, pthread_self()) != 0;
}

void groundwork::free_own_thread(GThread* thread) {
  pthread_detach(pthread_self());
  g_thread_free(thread);
}

void groundwork::join_thread(GThread* thread) {
  if (thread->exists) pthread_join(thread->tid, nullptr);
}

void groundwork::forget_thread(GThread* thread) {
  thread->exists = false;
  // A thread that was still starting held a reference to the handle.
  thread->users.store(1, std::memory_order_relaxed);
}
