// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>

#include <pthread.h>

#include "core/check.h"
#include "safe/failure.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_thread";

}  // namespace

extern "C" int g_thread_mutex_try(GMutex* mutex) {
  CHECK_ARG(mutex != NULL, fail(EINVAL));
  const int error = pthread_mutex_trylock(&mutex->mutex);
  if (error == 0) return 0;
  if (error == EBUSY) return 1;
  return fail(error);
}
