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
    if (text.size() > capacity_ - size_ && !grow(text.size())) return false;
    copy_text(text_ + size_, text.data(), text.size());
    size_ += text.size();
    return true;
  }

  const char* text() const { return text_; }
  std::size_t size() const { return size_; }

 private:
  bool grow(std::size_t more) {
    std::size_t needed = 0;
    std::size_t capacity = capacity_ != 0 ? capacity_ : 2048;
    if (__builtin_add_overflow(size_, more, &needed)) return false;
    while (capacity < needed) {
      if (__builtin_mul_overflow(capacity, std::size_t{2}, &capacity)) return false;
    }
    auto* const grown = static_cast<char*>(std::realloc(text_, capacity));
    if (grown == nullptr) return false;
    text_ = grown;
    capacity_ = capacity;
    return true;
  }

  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace groundwork

#endif
