// Mutexes and events, in a program with a second thread.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <groundwork/thread.h>
#include <pthread.h>

#include <ctime>

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

// What a program without events has: a condition by the monotonic clock, and a count.
struct Condition {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond;
  volatile unsigned signals = 1;

  Condition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&cond, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~Condition() { pthread_cond_destroy(&cond); }

  bool wait_for(unsigned ticket, int milliseconds) {
    pthread_mutex_lock(&mutex);
    int error = 0;
    if (signals == ticket) {
      timespec deadline{};
      clock_gettime(CLOCK_MONOTONIC, &deadline);
      deadline.tv_nsec += milliseconds * 1'000'000L;
      if (deadline.tv_nsec >= 1'000'000'000) {
        deadline.tv_nsec -= 1'000'000'000;
        ++deadline.tv_sec;
      }
      while (error == 0 && signals == ticket) {
        error = pthread_cond_timedwait(&cond, &mutex, &deadline);
      }
    }
    pthread_mutex_unlock(&mutex);
    return error == 0;
  }
};

void hit_ours(State& state) {
  const SecondThread second;
  GThreadEvent* const event = g_thread_event_new();
  const uint32_t ticket = g_thread_event_ticket(event);
  g_thread_event_signal(event);
  for (auto _ : state) DoNotOptimize(g_thread_event_wait_for(event, ticket, 1000));
  g_thread_event_free(event);
  report(state, 1);
}

void hit_condition(State& state) {
  const SecondThread second;
  Condition condition;
  for (auto _ : state) DoNotOptimize(condition.wait_for(0, 1000));
  report(state, 1);
}

constexpr int kTimeOuts = 200;

void timeout_ours(State& state) {
  const SecondThread second;
  GThreadEvent* const event = g_thread_event_new();
  const uint32_t ticket = g_thread_event_ticket(event);
  for (auto _ : state) {
    for (int i = 0; i < kTimeOuts; ++i) g_thread_event_wait_for(event, ticket, 1);
  }
  g_thread_event_free(event);
  report(state, kTimeOuts);
}

void timeout_condition(State& state) {
  const SecondThread second;
  Condition condition;
  for (auto _ : state) {
    for (int i = 0; i < kTimeOuts; ++i) DoNotOptimize(condition.wait_for(1, 1));
  }
  report(state, kTimeOuts);
}

}  // namespace

void groundwork::bench::register_jobs() {
  job("mutex.pair", "ours", pair_ours);
  job("mutex.pair", "pthread", pair_pthread);
  job("event.hit", "ours", hit_ours);
  job("event.hit", "condition", hit_condition);
  job("event.timeout", "ours", timeout_ours)->Iterations(1)->MeasureProcessCPUTime();
  job("event.timeout", "condition", timeout_condition)
      ->Iterations(1)
      ->MeasureProcessCPUTime();
}
