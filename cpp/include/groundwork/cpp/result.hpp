/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_RESULT_HPP
#define GROUNDWORK_CPP_RESULT_HPP

#include <cerrno>
#include <cstring>

namespace gw {

/** Why something failed: a number of `<errno.h>`. */
class Error {
 public:
  /** No error. */
  Error() = default;
  /** @param number of `<errno.h>`; 0 for none. */
  explicit Error(int number) : number_(number) {}

  /** @return the number; 0 for none. */
  [[nodiscard]] int number() const { return number_; }
  /** @return the system's text for it, as strerror(); valid until the thread's next call. */
  [[nodiscard]] const char* text() const { return std::strerror(number_); }
  /** @param number of `<errno.h>`. @return whether this is that error. */
  bool operator==(int number) const { return number_ == number; }
  /** @param number of `<errno.h>`. @return whether this is another. */
  bool operator!=(int number) const { return number_ != number; }

 private:
  int number_ = 0;
};

/**
 * The result of something that can fail: a value, or the reason.
 *
 * @code{.cpp}
 * gw::Conf conf("missing/place.conf");
 * conf.write_int("net", "port", 80);
 * if (const gw::Result<int> changes = conf.reload()) {
 *   printf("%d changes\n", *changes);
 * } else {
 *   puts(changes.error().text());  // prints: Device or resource busy
 * }
 * @endcode
 */
template <typename T>
class [[nodiscard]] Result {
 public:
  /** @param value of a success. */
  Result(T value) : value_(static_cast<T&&>(value)) {}
  /** @param error of a failure. */
  Result(Error error) : error_(error), has_value_(false) {}

  /** @return whether there is a value. */
  explicit operator bool() const { return has_value_; }
  /** @return the value; a default one after a failure. */
  const T& operator*() const { return value_; }
  /** @return the value; a default one after a failure. */
  T& operator*() { return value_; }
  /** @param fallback for a failure. @return the value, or `fallback`. */
  [[nodiscard]] T value_or(T fallback) const { return has_value_ ? value_ : fallback; }
  /** @return the reason of a failure. */
  [[nodiscard]] Error error() const { return error_; }

 private:
  T value_{};
  Error error_;
  bool has_value_ = true;
};

/** The result of something that returns no value: success, or the reason of the failure. */
template <>
class [[nodiscard]] Result<void> {
 public:
  /** Success. */
  Result() = default;
  /** @param error of a failure. */
  Result(Error error) : error_(error), is_done_(false) {}

  /** @return true on success. */
  explicit operator bool() const { return is_done_; }
  /** @return the reason of a failure. */
  [[nodiscard]] Error error() const { return error_; }

 private:
  Error error_;
  bool is_done_ = true;
};

/**
 * The result of a durable write. True: the new content is in place. It is also durable, unless
 * the directory could not be synced; then a power cut may bring the complete old content back.
 *
 * @code{.cpp}
 * const gw::Saved saved = gw::replace_file("notes.txt", "new notes\n");
 * if (!saved) puts(saved.error().text());
 * puts(saved.durable() ? "a power cut cannot take it away" : "not yet safe");
 * // prints: a power cut cannot take it away
 * @endcode
 */
class [[nodiscard]] Saved {
 public:
  /** @param result of g_file_replace() and the like, with `errno` as they left it. */
  explicit Saved(int result) : result_(result), error_(result == 0 ? 0 : errno) {}

  /** @return whether the new content is in place. */
  explicit operator bool() const { return result_ >= 0; }
  /** @return whether a power cut cannot take it away. */
  [[nodiscard]] bool durable() const { return result_ == 0; }
  /** @return why it is not in place, or not durable. */
  [[nodiscard]] Error error() const { return error_; }

 private:
  int result_;
  Error error_;
};

namespace detail {

// For functions that return 0 on success and set errno otherwise.
inline Result<void> done(int result) {
  if (result == 0) return {};
  return Error(errno);
}

}  // namespace detail
}  // namespace gw

#endif
