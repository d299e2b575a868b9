/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_OWNER_HPP
#define GROUNDWORK_CPP_OWNER_HPP

#include <pthread.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

/** The library for C++17: the same functions, with owners for what they hand out. */
namespace gw {

/** Calls a C function that releases a handle. */
template <auto Release>
struct Releaser {
  /** @param handle what is released. */
  template <typename T>
  void operator()(T *handle) const {
    static_cast<void>(Release(handle));
  }
};

/** The only owner of a handle: null when there is none. */
template <typename T, auto Release>
using Owner = std::unique_ptr<T, Releaser<Release>>;

/** Lets the calling thread not be cancelled for the length of a block. */
class CancellationHeld {
 public:
  CancellationHeld() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  CancellationHeld(const CancellationHeld &) = delete;
  CancellationHeld &operator=(const CancellationHeld &) = delete;
  ~CancellationHeld() { pthread_setcancelstate(before_, nullptr); }

 private:
  int before_;
};

/** Releases what may wait for the system. A destructor does that, and a thread that is
 *  cancelled inside a destructor takes its program along, so cancellation waits. */
template <auto Release>
struct SystemReleaser {
  /** @param handle what is released. */
  template <typename T>
  void operator()(T *handle) const {
    const CancellationHeld held;
    static_cast<void>(Release(handle));
  }
};

/** The only owner of a handle whose release may wait for the system. */
template <typename T, auto Release>
using SystemOwner = std::unique_ptr<T, SystemReleaser<Release>>;

/** What the headers share; not for programs. */
namespace detail {

// Elements travel as void *, of const objects too: the library only hands them back.
template <typename T>
void *untyped(T *pointer) {
  return const_cast<void *>(static_cast<const void *>(pointer));
}

// What a visitor returned, in the words of C: nothing or true goes on.
template <typename Function, typename... Arguments>
int stops(Function &function, Arguments &&...arguments) {
  using Result = std::invoke_result_t<Function &, Arguments...>;
  static_assert(std::is_void_v<Result> || std::is_same_v<Result, bool>,
                "a callback returns nothing, or true to go on");
  if constexpr (std::is_void_v<Result>) {
    function(std::forward<Arguments>(arguments)...);
    return 0;
  } else {
    return function(std::forward<Arguments>(arguments)...) ? 0 : 1;
  }
}

}  // namespace detail
}  // namespace gw

#endif
