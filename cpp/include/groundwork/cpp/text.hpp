/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_TEXT_HPP
#define GROUNDWORK_CPP_TEXT_HPP

#include <groundwork/str.h>
#include <groundwork/cpp/owner.hpp>

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace gw {

/**
 * A text passed to the library for one call. NUL-terminated text is passed as it is; a view is
 * copied, into this object if it is short. A NUL inside a view ends the text. A null pointer,
 * or a copy that could not be allocated, is passed as null, which the library reports.
 *
 * @code{.cpp}
 * const std::string section = "net";
 * gw::Conf conf("gateway.conf");
 * conf.write_string(section, std::string_view("name=x").substr(0, 4), "gate");
 * puts(conf.find("net", "name")->data());  // prints: gate
 * @endcode
 */
class Text {
 public:
  /** @param text NUL-terminated, or null. */
  Text(const char* text) : text_(text) {}
  /** @param text any. */
  Text(const std::string& text) : text_(text.c_str()) {}
  /** @param text any, copied. */
  Text(std::string_view text) : text_(copy(text)) {}
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;

  /** @return the text, NUL-terminated. */
  operator const char*() const { return text_; }

 private:
  const char* copy(std::string_view text) {
    if (text.data() == nullptr) return nullptr;
    char* place = short_;
    if (text.size() >= sizeof short_) {
      long_.reset(static_cast<char*>(std::malloc(text.size() + 1)));
      place = long_.get();
      if (place == nullptr) return nullptr;
    }
    std::memcpy(place, text.data(), text.size());
    place[text.size()] = '\0';
    return place;
  }

  char short_[64];
  Owner<char, std::free> long_;
  const char* text_;  // last, since it may point into one of the others
};

/**
 * An owned text from the library; null when there is none.
 *
 * @code{.cpp}
 * const gw::String line = gw::format("%s=%d", "port", 80);
 * if (line) puts(line.c_str());  // prints: port=80
 * @endcode
 */
class String {
 public:
  String() = default;
  /** @param text from the heap, or null. */
  explicit String(char* text) : text_(text) {}

  /** @return whether there is a text. */
  explicit operator bool() const { return text_ != nullptr; }
  /** @return the text, or null. */
  [[nodiscard]] const char* c_str() const { return text_.get(); }
  /** @return the text; an empty one when there is none. */
  [[nodiscard]] std::string_view view() const {
    return text_ == nullptr ? std::string_view() : std::string_view(text_.get());
  }
  /** @return as view(). */
  operator std::string_view() const { return view(); }
  /** Releases ownership. @return the text, to be freed with free(). */
  char* release() { return text_.release(); }

 private:
  Owner<char, std::free> text_;
};

/**
 * Owned bytes from the library; null when there are none.
 *
 * @code{.cpp}
 * const gw::Bytes notes = gw::read_file("notes.txt");
 * printf("%zu bytes\n", notes.size());  // prints: 9 bytes
 * @endcode
 */
class Bytes {
 public:
  Bytes() = default;
  /** @param data from the heap, or null. @param size in bytes. */
  Bytes(char* data, size_t size) : data_(data), size_(data == nullptr ? 0 : size) {}

  /** @return whether there is a block, even an empty one. */
  explicit operator bool() const { return data_ != nullptr; }
  /** @return the first byte, or null. */
  [[nodiscard]] const char* data() const { return data_.get(); }
  /** @return how many there are. */
  [[nodiscard]] size_t size() const { return size_; }
  /** @return all of them. */
  [[nodiscard]] std::string_view view() const { return {data_.get(), size_}; }

 private:
  Owner<char, std::free> data_;
  size_t size_ = 0;
};

/**
 * An owned array of texts, terminated by a null pointer.
 *
 * @code{.cpp}
 * const gw::Pieces pieces = gw::split("red,green,blue", ",");
 * for (const char* piece : pieces) puts(piece);
 * // prints: red
 * // prints: green
 * // prints: blue
 * @endcode
 */
template <auto Release>
class StringArray {
 public:
  StringArray() = default;
  /** @param texts from the library, or null. */
  explicit StringArray(char** texts) : texts_(texts) {
    while (texts != nullptr && texts[size_] != nullptr) ++size_;
  }

  /** @return whether there is an array, be it empty. */
  explicit operator bool() const { return texts_ != nullptr; }
  /** @return how many texts there are. */
  [[nodiscard]] size_t size() const { return size_; }
  /** @param index below size(). @return that text. */
  const char* operator[](size_t index) const { return texts_.get()[index]; }
  /** @return the first. */
  [[nodiscard]] const char* const* begin() const { return texts_.get(); }
  /** @return past the last. */
  [[nodiscard]] const char* const* end() const { return texts_.get() + size_; }

 private:
  Owner<char*, Release> texts_;
  size_t size_ = 0;
};

/** Pieces of a text. */
using Pieces = StringArray<g_strfreev>;

/** Splits a text, as g_strsplit().
 *  @param text       any.
 *  @param delimiter  not empty; taken as one whole text.
 *  @param max_tokens the most pieces, the last of which is the rest; 0 for all.
 *  @return the pieces; none on failure. */
[[nodiscard]] inline Pieces split(const Text& text, const Text& delimiter,
                                  int max_tokens = 0) {
  return Pieces(g_strsplit(text, delimiter, max_tokens));
}

/** Formats a text, as g_strdup_printf().
 *  @param format as for printf(). @return the text; null on failure. */
[[nodiscard]] inline String format(const char* format, ...) G_PRINTF(1, 2);
inline String format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  String text(g_strdup_vprintf(format, arguments));
  va_end(arguments);
  return text;
}

}  // namespace gw

#endif
