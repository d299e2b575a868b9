// Text that grows as it is added to.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_TEXT_BUFFER_H
#define GROUNDWORK_CONF_TEXT_BUFFER_H

#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "core/copy_text.h"

namespace groundwork {

class TextBuffer {
 public:
  TextBuffer() = default;
  ~TextBuffer() { std::free(text_); }
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  // False when memory is exhausted.
  bool add(std::string_view text) {
    if (text.empty()) return true;
    char* const end = extend(text.size());
    if (end == nullptr) return false;
    copy_text(end, text.data(), text.size());
    return true;
  }

  // Makes room at once for a text that is expected to have that size. Without memory for it
  // the room grows with the text.
  void expect(size_t size) {
    if (size > capacity_) set_capacity(size);
  }

  // Makes the text longer, by one byte at least. Where to put what comes there; null when
  // memory is exhausted.
  char* extend(size_t more) {
    if (more > capacity_ - size_ && !grow(more)) return nullptr;
    char* const end = text_ + size_;
    size_ += more;
    return end;
  }

  const char* text() const { return text_; }
  size_t size() const { return size_; }

 private:
  [[gnu::noinline]] bool grow(size_t more) {
    size_t needed = 0;
    size_t capacity = capacity_ != 0 ? capacity_ : 2048;
    if (__builtin_add_overflow(size_, more, &needed)) return false;
    while (capacity < needed) {
      if (__builtin_mul_overflow(capacity, size_t{2}, &capacity)) return false;
    }
    return set_capacity(capacity);
  }

  bool set_capacity(size_t capacity) {
    auto* const resized = static_cast<char*>(std::realloc(text_, capacity));
    if (resized == nullptr) return false;
    text_ = resized;
    capacity_ = capacity;
    return true;
  }

  char* text_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace groundwork

#endif
