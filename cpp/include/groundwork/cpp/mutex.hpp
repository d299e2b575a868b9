/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_MUTEX_HPP
#define GROUNDWORK_CPP_MUTEX_HPP

#include <groundwork/safe.h>
#include <groundwork/thread.h>
#include <groundwork/cpp/owner.hpp>

namespace gw {

/**
 * A non-recursive mutex; it works with `std::lock_guard`, `std::unique_lock` and
 * `std::scoped_lock`, too.
 *
 * @code{.cpp}
 * gw::Mutex mutex;
 * {
 *   const gw::Lock lock(mutex);
 *   puts(mutex.try_lock() ? "free" : "held");  // prints: held
 * }
 * @endcode
 */
class Mutex {
 public:
  /** Creates a mutex; null when memory is exhausted. */
  Mutex() : mutex_(g_thread_mutex_new()) {}

  /** @return whether there is one. */
  explicit operator bool() const { return mutex_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GMutex* get() const { return mutex_.get(); }
  /** Locks; the owner must not lock again. */
  void lock() { g_thread_mutex_lock(get()); }
  /** Locks if the mutex is free, as g_thread_mutex_try(). @return whether it locked. */
  [[nodiscard]] bool try_lock() { return g_thread_mutex_try(get()) == 0; }
  /** Unlocks. */
  void unlock() { g_thread_mutex_unlock(get()); }

 private:
  Owner<GMutex, g_thread_mutex_free> mutex_;
};

/**
 * Holds a mutex until the end of the block.
 *
 * @code{.cpp}
 * gw::Mutex mutex;
 * int count = 0;
 * gw::Thread other([&] {
 *   const gw::Lock lock(mutex);
 *   ++count;
 * });
 * other.join();
 * const gw::Lock lock(mutex);
 * printf("%d\n", count);  // prints: 1
 * @endcode
 */
class [[nodiscard]] Lock {
 public:
  /** @param mutex locked until the end of the block. */
  [[nodiscard]] explicit Lock(Mutex& mutex) : mutex_(mutex) { mutex_.lock(); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() { mutex_.unlock(); }

 private:
  Mutex& mutex_;
};

}  // namespace gw

#endif
