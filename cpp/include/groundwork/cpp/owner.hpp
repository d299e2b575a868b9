/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_OWNER_HPP
#define GROUNDWORK_CPP_OWNER_HPP

#include <pthread.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

/**
 * The library for C++17: the same functions, with owners for what they return.
 *
 * Include `<groundwork/groundwork.hpp>` and link the same library; there is nothing else to
 * build. The classes follow a few rules:
 *
 * - **Owners.** An object owns its handle and releases it when it is destroyed. Objects can be
 *   moved but not copied. One that could not be created, or was moved from, converts to false.
 * - **No exceptions.** What can fail returns a `bool`, a `std::optional`, a gw::Result with the
 *   reason, or a gw::Saved for writes that survive a power cut. Results that must not be ignored
 *   are `[[nodiscard]]`.
 * - **Texts.** A parameter of type gw::Text takes a literal, a `std::string` or a
 *   `std::string_view`. Texts from the library are owned (gw::String, gw::Bytes), or are views,
 *   and the function says how long they are valid.
 * - **Callbacks.** Lambdas, with state. Those called from inside a library function must be
 *   `noexcept`, which the compiler checks: an exception would skip the library's frames and leave
 *   a lock held. Functions that run as a thread of their own (gw::Thread, gw::Timeout, gw::Timer)
 *   must not be `noexcept`, because cancelling the thread unwinds them.
 * - **Times** are `std::chrono` durations, or numbers of milliseconds.
 *
 * Where there is a safe counterpart, the classes offer it under the plain name: gw::Conf::save(),
 * gw::replace_file(), gw::Event::wait_for(), gw::Mutex::try_lock(), gw::remove_tree(),
 * gw::base64_encode().
 *
 * @code{.cpp}
 * gw::Conf conf("gateway.conf");
 * conf.write_int("net", "port", 8080);
 * if (const gw::Saved saved = conf.save(); !saved) {
 *   fprintf(stderr, "gateway.conf: %s\n", saved.error().text());
 *   return 1;
 * }
 * if (const gw::Bytes text = gw::read_file("gateway.conf")) printf("%s", text.data());
 * // prints: [net]
 * // prints: port=8080
 * @endcode
 */
namespace gw {

/** Calls a C function that releases a handle. */
template <auto Release>
struct Releaser {
  /** @param handle what is released. */
  template <typename T>
  void operator()(T* handle) const {
    static_cast<void>(Release(handle));
  }
};

/** The sole owner of a handle; null when there is none. */
template <typename T, auto Release>
using Owner = std::unique_ptr<T, Releaser<Release>>;

/** Keeps the calling thread from being cancelled until the end of the block. */
class CancellationHeld {
 public:
  [[nodiscard]] CancellationHeld() {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_);
  }
  CancellationHeld(const CancellationHeld&) = delete;
  CancellationHeld& operator=(const CancellationHeld&) = delete;
  ~CancellationHeld() { pthread_setcancelstate(before_, nullptr); }

 private:
  int before_;
};

/** Calls a release function that may block, with cancellation disabled: it runs in a
 *  destructor, and cancelling a thread inside a destructor would end the program. */
template <auto Release>
struct SystemReleaser {
  /** @param handle what is released. */
  template <typename T>
  void operator()(T* handle) const {
    const CancellationHeld held;
    static_cast<void>(Release(handle));
  }
};

/** The sole owner of a handle whose release may block. */
template <typename T, auto Release>
using SystemOwner = std::unique_ptr<T, SystemReleaser<Release>>;

/** What the headers share; not for programs. */
namespace detail {

// Elements are passed as void*, const objects included: the library only returns them.
template <typename T>
void* untyped(T* pointer) {
  return const_cast<void*>(static_cast<const void*>(pointer));
}

// For functions called from inside a library function: an exception would skip the library's
// frames and leave a lock held or memory leaked, so they have to be noexcept. Functions that
// run as a thread of their own must not be: cancelling the thread unwinds them, and a noexcept
// frame would end the program.
template <typename Function, typename... Arguments>
constexpr void require_noexcept() {
#ifdef __cpp_exceptions
  static_assert(std::is_nothrow_invocable_v<Function&, Arguments...>,
                "a callback must not throw: write noexcept after its parameters");
#endif
}

// The result of a callback as the C interface has it: 0, for nothing or true, goes on.
template <typename Function, typename... Arguments>
int stops(Function& function, Arguments&&... arguments) {
  using Result = std::invoke_result_t<Function&, Arguments...>;
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
