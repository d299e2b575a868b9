// Scoped locking of a GMutex.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_MUTEX_LOCK_H
#define GROUNDWORK_THREAD_MUTEX_LOCK_H

#include <groundwork/thread.h>

#include <pthread.h>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

struct GMutex {
  pthread_mutex_t mutex;
};

namespace groundwork {

// Holds a mutex until the end of the scope, like g_thread_mutex_lock() and
// g_thread_mutex_unlock() (each reports a null one), but without two calls through the
// dynamic linker.
//
// A cancelled thread runs no destructors: do not hold it across a cancellation point or a
// user function, unless a cleanup handler unlocks it.
class MutexLock {
 public:
  explicit MutexLock(GMutex* mutex) : MutexLock(mutex, true) {}
  ~MutexLock() {
    if (mutex_ == nullptr) [[unlikely]] {
      g_thread_mutex_unlock(nullptr);
    } else if (is_needed_) {
      pthread_mutex_unlock(&mutex_->mutex);
    }
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 protected:
  MutexLock(GMutex* mutex, bool is_needed,
            int (*lock)(pthread_mutex_t*) = pthread_mutex_lock)
      : mutex_(mutex), is_needed_(is_needed) {
    if (mutex_ == nullptr) [[unlikely]] {
      g_thread_mutex_lock(nullptr);
    } else if (is_needed_) {
      lock(&mutex_->mutex);
    }
  }

 private:
  GMutex* const mutex_;
  const bool is_needed_;
};

// Returns whether the process is known to have only one thread.
inline bool is_single_threaded() {
#if __has_include(<sys/single_threaded.h>)
  return __libc_single_threaded != 0;
#else
  return false;
#endif
}

// The same for a scope that starts no thread: a single-threaded process skips the mutex.
class BriefLock : public MutexLock {
 public:
  explicit BriefLock(GMutex* mutex) : MutexLock(mutex, !is_single_threaded()) {}
};

}  // namespace groundwork

#endif
