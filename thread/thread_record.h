// The definition of GThread.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_THREAD_RECORD_H
#define GROUNDWORK_THREAD_THREAD_RECORD_H

#include <groundwork/thread.h>

#include <atomic>
#include <cstddef>

#include <pthread.h>

struct GThread {
  pthread_t tid;
  GThreadFunc func;
  void* arg;
  std::atomic<int> users;  // reference count: the owner, and the thread while it starts
  bool exists;             // false if there is no such thread in this process
};
static_assert(offsetof(GThread, tid) == 0 && offsetof(GThread, func) == sizeof(pthread_t) &&
              offsetof(GThread, arg) == sizeof(pthread_t) + sizeof(void*) &&
              std::atomic<int>::is_always_lock_free);

#endif
