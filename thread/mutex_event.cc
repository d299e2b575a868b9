// Mutexes and events.
//
// An event's mutex is held only inside event calls, and a cancelled waiter releases it. An
// event that is freed while threads are leaving it is destroyed by the last of them.
//
// SPDX-License-Identifier: MIT

#include <groundwork/thread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sys/time.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "thread/event.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

static_assert(sizeof(GMutex) == sizeof(pthread_mutex_t));

namespace {

constexpr char kSource[] = "g_thread";

// Logs a failed system call; `action` says what failed.
void warn(int line, const char* action) {
  g_log(G_LOG_WARNING, kSource, line, "can't %s - %s", action, std::strerror(errno));
}

// The result of g_thread_mutex_lock() and the like. Kept: only a negative result counts as
// a failure, but POSIX reports failures with positive ones. So trylock returns 0 for a busy
// mutex, as callers expect.
int result_of(int posix_result, int line, const char* action) {
  if (posix_result < 0) [[unlikely]] {
    warn(line, action);
    return -1;
  }
  return 0;
}

void dispose(GThreadEvent* event) {
  if (pthread_cond_destroy(&event->cond) != 0) warn(__LINE__, "destroy cond");
  if (event->has_ticket_cond) pthread_cond_destroy(&event->ticket_cond);
  g_thread_mutex_free(event->mutex);
  std::free(event);
}

void enter_event(GThreadEvent* event) {
  g_thread_mutex_lock(event->mutex);
  ++event->waiters;
}

// The mutex is held.
void end_ticket_waits(GThreadEvent* event) {
  if (event->ticket_waiters != 0) pthread_cond_broadcast(&event->ticket_cond);
}

// Kept: a sum of exactly one second of nanoseconds is not carried over. The timed wait
// rejects it, and programs see the failure in their logs.
timespec deadline_after(int milliseconds) {
  timeval now{};
  gettimeofday(&now, nullptr);
  auto seconds = now.tv_sec + milliseconds / 1000;
  auto nanoseconds = (now.tv_usec + (milliseconds % 1000) * 1000) * 1000;
  if (nanoseconds > 1'000'000'000) {
    ++seconds;
    nanoseconds -= 1'000'000'000;
  }
  timespec deadline{};
  deadline.tv_sec = seconds;
  deadline.tv_nsec = static_cast<decltype(deadline.tv_nsec)>(nanoseconds);
  return deadline;
}

void wait_until(GThreadEvent* event, const timespec& deadline) {
  int result;
  do {
    result = pthread_cond_timedwait(&event->cond, &event->mutex->mutex, &deadline);
  } while (result == EINTR);
  if (result != 0 && result != ETIMEDOUT) {
    g_log(G_LOG_ERROR, kSource, __LINE__, "g_thread_event_wait_timeout() failed");
  }
}

}  // namespace

void groundwork::leave_event(void* waited_for) {
  auto* const event = static_cast<GThreadEvent*>(waited_for);
  const bool is_last = --event->waiters == 0 && event->freed;
  g_thread_mutex_unlock(event->mutex);
  if (is_last) dispose(event);
}

extern "C" GMutex* g_thread_mutex_new(void) {
  auto* const mutex = static_cast<GMutex*>(std::calloc(1, sizeof(GMutex)));
  if (mutex != nullptr) pthread_mutex_init(&mutex->mutex, nullptr);
  return mutex;
}

extern "C" void g_thread_mutex_free(GMutex* mutex) {
  CHECK_ARG(mutex != NULL);
  pthread_mutex_trylock(&mutex->mutex);
  g_thread_mutex_unlock(mutex);
  if (pthread_mutex_destroy(&mutex->mutex) != 0) warn(__LINE__, "destroy mutex");
  std::free(mutex);
}

extern "C" int g_thread_mutex_lock(GMutex* mutex) {
  CHECK_ARG(mutex != NULL, -1);
  return result_of(pthread_mutex_lock(&mutex->mutex), __LINE__, "lock mutex");
}

extern "C" int g_thread_mutex_trylock(GMutex* mutex) {
  CHECK_ARG(mutex != NULL, -1);
  return result_of(pthread_mutex_trylock(&mutex->mutex), __LINE__, "lock mutex");
}

extern "C" int g_thread_mutex_unlock(GMutex* mutex) {
  CHECK_ARG(mutex != NULL, -1);
  return result_of(pthread_mutex_unlock(&mutex->mutex), __LINE__, "unlock mutex");
}

extern "C" GThreadEvent* g_thread_event_new(void) {
  Owned<GThreadEvent> event(
      static_cast<GThreadEvent*>(std::calloc(1, sizeof(GThreadEvent))));
  if (event == nullptr) return nullptr;
  // Kept: the event is returned nevertheless; a zeroed condition variable is usable.
  if (pthread_cond_init(&event->cond, nullptr) != 0) warn(__LINE__, "init cond");
  event->mutex = g_thread_mutex_new();
  if (event->mutex == nullptr) {
    pthread_cond_destroy(&event->cond);
    return nullptr;
  }
  return event.release();
}

extern "C" void g_thread_event_free(GThreadEvent* event) {
  CHECK_ARG(event != NULL);
  g_thread_event_signal(event);
  g_thread_mutex_lock(event->mutex);
  event->freed = true;
  end_ticket_waits(event);
  const bool is_last = event->waiters == 0;
  g_thread_mutex_unlock(event->mutex);
  if (is_last) dispose(event);
}

extern "C" int g_thread_event_wait(GThreadEvent* event) {
  CHECK_ARG(event != NULL, -1);
  int result = 0;
  enter_event(event);
  with_cleanup(leave_event, event, [event, &result] {
    result = pthread_cond_wait(&event->cond, &event->mutex->mutex);
    if (result != 0) warn(__LINE__, "wait cond");
  });
  leave_event(event);
  return result;
}

extern "C" int g_thread_event_wait_timeout(GThreadEvent* event, int timeout) {
  CHECK_ARG(event != NULL, -1);
  int result = 0;
  enter_event(event);
  with_cleanup(leave_event, event, [=, &result] {
    wait_until(event, deadline_after(timeout));
    // Kept: the time-out limits only the first wait; callers rely on returning after a
    // later signal and never before.
    result = pthread_cond_wait(&event->cond, &event->mutex->mutex);
  });
  leave_event(event);
  return result;
}

extern "C" int g_thread_event_signal(GThreadEvent* event) {
  CHECK_ARG(event != NULL, -1);
  g_thread_mutex_lock(event->mutex);
  ++event->signals;
  const int result = pthread_cond_signal(&event->cond);
  end_ticket_waits(event);
  g_thread_mutex_unlock(event->mutex);
  if (result != 0) warn(__LINE__, "signal cond");
  return 0;
}

extern "C" int g_thread_event_broadcast(GThreadEvent* event) {
  CHECK_ARG(event != NULL, -1);
  g_thread_mutex_lock(event->mutex);
  ++event->signals;
  const int result = pthread_cond_broadcast(&event->cond);
  end_ticket_waits(event);
  g_thread_mutex_unlock(event->mutex);
  if (result != 0) warn(__LINE__, "signal cond broadcast");
  return 0;
}
