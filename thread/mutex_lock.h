// Scoped locking of a GMutex.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_MUTEX_LOCK_H
#define GROUNDWORK_THREAD_MUTEX_LOCK_H

#include <groundwork/thread.h>

#include <pthread.h>

struct GMutex {
  pthread_mutex_t mutex;
};

namespace groundwork {

// Holds a mutex to the end of the scope, as g_thread_mutex_lock() and
// g_thread_mutex_unlock() would (a null one is reported by each), but without two calls
// through the dynamic linker.
//
// A cancelled thread runs no destructors: hold it across neither a cancellation point nor
// a user's function, or see to the unlocking with pthread_cleanup_push().
class MutexLock {
 public:
  explicit MutexLock(GMutex* mutex) : mutex_(mutex) {
    if (mutex_ != nullptr) [[likely]] {
      pthread_mutex_lock(&mutex_->mutex);
    } else {
      g_thread_mutex_lock(nullptr);
    }
  }
  ~MutexLock() {
    if (mutex_ != nullptr) [[likely]] {
      pthread_mutex_unlock(&mutex_->mutex);
    } else {
      g_thread_mutex_unlock(nullptr);
    }
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  GMutex* const mutex_;
};

}  // namespace groundwork

#endif
