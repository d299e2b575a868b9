/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_URL_HPP
#define GROUNDWORK_CPP_URL_HPP

#include <groundwork/url.h>
#include <groundwork/cpp/text.hpp>

#include <cstdint>
#include <cstdio>
#include <optional>

namespace gw {

/** Registers the file and HTTP modules, once; call it before the first Url, from one thread.
 *  Not for programs that register modules themselves. */
inline void use_files_and_http() {
  static bool done = false;
  if (!std::exchange(done, true)) {
    url_add_modules(&URL_module_file, &URL_module_http, static_cast<URL_module*>(nullptr));
  }
}

/**
 * A stream over a file, standard input or HTTP, closed by the destructor.
 *
 * @code{.cpp}
 * gw::use_files_and_http();
 * gw::Url url("notes.txt");  // or "http://host/notes.txt", or "-"
 * if (!url) return 1;
 * char buffer[256];
 * while (const auto line = url.line(buffer)) printf("%s\n", line->data());
 * // prints: one
 * // prints: two
 * @endcode
 */
class Url {
 public:
  Url() = default;
  /** Opens a stream, as url_open(). @param url not null. */
  explicit Url(const Text& url) : url_(url_open(url)) {}

  /** @return whether it is open. */
  explicit operator bool() const { return url_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] URL get() const { return url_.get(); }
  /** Reads bytes, as url_read(). @param buffer room for `size` bytes. @param size the maximum.
   *  @return the number of bytes read; 0 at the end, -1 on error. */
  [[nodiscard]] int32_t read(void* buffer, int32_t size) {
    return url_read(get(), buffer, size);
  }
  /** Reads the next non-empty line, without its line end, as url_readline().
   *  @param buffer gets the line; the rest of a longer line is returned as the next one.
   *  @return the line, in `buffer`; none at the end. */
  template <size_t Size>
  [[nodiscard]] std::optional<std::string_view> line(char (&buffer)[Size]) {
    const int32_t length = url_readline(get(), buffer, static_cast<int32_t>(Size));
    if (length <= 0) return std::nullopt;
    return std::string_view(buffer, static_cast<size_t>(length));
  }
  /** Reads a byte, as url_fgetc(). @return 0 to 255, or -1. */
  int byte() { return url_fgetc(get()); }
  /** Reads bytes, as url_dump(). @param size the maximum. @return the bytes; none at the end, and
   *  when the first read fails. */
  [[nodiscard]] Bytes dump(int32_t size) {
    int32_t length = 0;
    Owner<char, std::free> bytes(static_cast<char*>(url_dump(get(), size, &length)));
    if (bytes == nullptr || length < 0) return {};
    return Bytes(bytes.release(), static_cast<size_t>(length));
  }
  /** Moves the stream, as url_seek(). @param offset in bytes, relative to `whence`.
   *  @param whence SEEK_SET, SEEK_CUR or SEEK_END. @return the new position, or the position
   *  before the move if the stream can only go forwards; -1 on failure. */
  int64_t seek(int64_t offset, int whence = SEEK_SET) {
    return url_seek(get(), offset, whence);
  }
  /** @return the position in bytes, as url_tell(). */
  [[nodiscard]] int64_t tell() { return url_tell(get()); }
  /** Closes it. */
  void close() { url_.reset(); }

 private:
  SystemOwner<URL_record, url_close> url_;
};

}  // namespace gw

#endif
