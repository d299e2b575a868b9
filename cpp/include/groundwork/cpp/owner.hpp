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
 * The library for C++17: the same functions, with owners for what they hand out.
 *
 * Include `<groundwork/groundwork.hpp>` and link the same library; there is nothing else to
 * build. The classes follow a few rules:
 *
 * - **Owners.** An object owns its handle and releases it at its end. Objects move and do not
 *   copy. One that could not be made, or was moved from, is false.
 * - **No exceptions.** What can fail says so: a `bool`, a `std::optional`, a gw::Result with
 *   the reason, or a gw::Saved for writes that outlast a power cut. Results that must not be
 *   overlooked are `[[nodiscard]]`.
 * - **Texts.** A parameter of type gw::Text takes a literal, a `std::string` or a
 *   `std::string_view`. Texts from the library are owned (gw::String, gw::Bytes), or views
 *   whose function says how long they are valid.
 * - **Callbacks.** Lambdas, with state. Those that the library calls on the way must be
 *   `noexcept`, which the compiler checks: an exception would pass the library's frames by and
 *   leave a lock held. Functions that are a thread's own work (gw::Thread, gw::Timeout,
 *   gw::Timer) must not be `noexcept`, for cancelling a thread unwinds them.
 * - **Times** are durations of `std::chrono`, or numbers of milliseconds.
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

/** The only owner of a handle: null when there is none. */
template <typename T, auto Release>
using Owner = std::unique_ptr<T, Releaser<Release>>;

/** Lets the calling thread not be cancelled for the length of a block. */
class CancellationHeld {
 public:
  CancellationHeld() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  CancellationHeld(const CancellationHeld&) = delete;
  CancellationHeld& operator=(const CancellationHeld&) = delete;
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
  void operator()(T* handle) const {
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
void* untyped(T* pointer) {
  return const_cast<void*>(static_cast<const void*>(pointer));
}

// A function that the library calls, with its own frames between: an exception would pass
// them by, and leave a lock held or memory lost. So the function says that it throws none.
// Functions that are a thread's own work are not asked: cancelling their thread unwinds them,
// and would end the program at a frame that lets nothing through.
template <typename Function, typename... Arguments>
constexpr void require_noexcept() {
#ifdef __cpp_exceptions
  static_assert(std::is_nothrow_invocable_v<Function&, Arguments...>,
                "a callback must not throw: write noexcept after its parameters");
#endif
}

// What a visitor returned, in the words of C: nothing or true goes on.
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
