/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_SAFE_HPP
#define GROUNDWORK_CPP_SAFE_HPP

#include <groundwork/safe.h>
#include <groundwork/cpp/result.hpp>
#include <groundwork/cpp/text.hpp>
#include <groundwork/cpp/time.hpp>

#include <cstdint>
#include <utility>

namespace gw {

/** Replaces the content of a file, or creates the file, as g_file_replace(): atomic and durable.
 *  @param path not null. @param bytes the new content. @return the result. */
inline Saved replace_file(const Text& path, std::string_view bytes) {
  // An empty view may have a null pointer, which the C function would reject.
  const char* const content = bytes.empty() ? "" : bytes.data();
  return Saved(g_file_replace(path, content, static_cast<int64_t>(bytes.size())));
}

/** Copies a file with its mode and times, as g_file_duplicate(). @param from not null.
 *  @param to not null. @return the result. */
inline Saved duplicate_file(const Text& from, const Text& to) {
  return Saved(g_file_duplicate(from, to));
}

/** Creates a directory and all missing parents, as g_dir_make(). @param path not null.
 *  @param mode of new directories, less the umask. @return success if the directory exists. */
inline Result<void> make_directory(const Text& path, unsigned mode = 0755) {
  return detail::done(g_dir_make(path, mode));
}

/** Removes a tree or a file and nothing outside it, as g_dir_remove(). @param path not null.
 *  @return success if all of it was removed; ENOENT if there was nothing. */
inline Result<void> remove_tree(const Text& path) {
  return detail::done(g_dir_remove(path));
}

/**
 * Lets the timer service sleep until the next timer is due, as g_timer_save_power(), until the
 * end of the block.
 *
 * @code{.cpp}
 * gw::TimerService service;
 * {
 *   const gw::PowerSaving saving;
 *   gw::delay(30);
 * }  // as before
 * @endcode
 */
class PowerSaving {
 public:
  [[nodiscard]] PowerSaving() : before_(g_timer_save_power(1)) {}
  PowerSaving(const PowerSaving&) = delete;
  PowerSaving& operator=(const PowerSaving&) = delete;
  ~PowerSaving() { g_timer_save_power(before_); }

 private:
  int before_;
};

/**
 * Sets the limit of url_http_set_timeout() until the end of the block. The limit is process-wide,
 * like all state of streams.
 *
 * @code{.cpp}
 * gw::use_files_and_http();
 * const gw::HttpTimeout limit(std::chrono::seconds(2));
 * const gw::Url page("http://localhost:8080/notes.txt");
 * puts(page ? "open" : "closed, or too slow");  // prints: open
 * @endcode
 */
class HttpTimeout {
 public:
  /** @param time limit of opening, and of each later wait; 0 for none. */
  [[nodiscard]] explicit HttpTimeout(Milliseconds time)
      : before_(url_http_set_timeout(time.count())) {}
  HttpTimeout(const HttpTimeout&) = delete;
  HttpTimeout& operator=(const HttpTimeout&) = delete;
  ~HttpTimeout() { url_http_set_timeout(before_); }

 private:
  int before_;
};

}  // namespace gw

#endif
