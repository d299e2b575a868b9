// A block of the heap with nothing to spare, so that the address sanitizer sees one byte
// too many.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_SUPPORT_BUFFER_H
#define GROUNDWORK_FUZZ_SUPPORT_BUFFER_H

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace fuzz {

// What untouched bytes of a buffer hold.
constexpr char kUntouched = '\x5e';

class Buffer {
 public:
  explicit Buffer(size_t size) : size_(size), data_(allocated(size)) {
    if (size != 0) std::memset(data_, kUntouched, size);
  }
  // Holds these bytes and no terminator.
  explicit Buffer(std::string_view bytes) : size_(bytes.size()), data_(allocated(size_)) {
    if (size_ != 0) std::memcpy(data_, bytes.data(), size_);
  }
  ~Buffer() { std::free(data_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  char* data() { return data_; }
  const char* data() const { return data_; }
  size_t size() const { return size_; }
  std::string content() const { return std::string(data_, size_); }

 private:
  static char* allocated(size_t size) {
    void* const block = std::malloc(size);
    if (block == nullptr && size != 0) std::abort();
    return static_cast<char*>(block);
  }

  size_t size_;
  char* data_;
};

// A text with its terminator, in a block of its own.
class Text : public Buffer {
 public:
  explicit Text(const std::string& text)
      : Buffer(std::string_view(text.c_str(), std::strlen(text.c_str()) + 1)) {}
};

}  // namespace fuzz

#endif
