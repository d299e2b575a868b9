// Locking and unlocking a free mutex, in a program with a second thread.
//
// SPDX-License-Identifier: MIT

#include <groundwork/thread.h>
#include <pthread.h>

#include "support/job.h"
#include "support/second_thread.h"

using namespace groundwork::bench;

namespace {

void pair_ours(State& state) {
  const SecondThread second;
  GMutex* const mutex = g_thread_mutex_new();
  for (auto _ : state) {
    g_thread_mutex_lock(mutex);
    g_thread_mutex_unlock(mutex);
  }
  g_thread_mutex_free(mutex);
  report(state, 1);
}

void pair_pthread(State& state) {
  const SecondThread second;
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
  }
  pthread_mutex_destroy(&mutex);
  report(state, 1);
}

}  // namespace

void groundwork::bench::register_jobs() {
  job("mutex.pair", "ours", pair_ours);
  job("mutex.pair", "pthread", pair_pthread);
}
