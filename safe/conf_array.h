// An array that grows.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_ARRAY_H
#define GROUNDWORK_SAFE_CONF_ARRAY_H

#include <cstddef>
#include <cstdlib>
#include <type_traits>
#include <utility>

namespace groundwork {

// What arrays of all types share, in code that is there once. Sizes are in bytes.
class ByteArray {
 public:
  ByteArray() = default;
  ~ByteArray() { std::free(bytes_); }
  ByteArray(const ByteArray&) = delete;
  ByteArray& operator=(const ByteArray&) = delete;

 protected:
  // False, with nothing changed, when memory is exhausted.
  bool add_bytes(const void* bytes, size_t size);
  bool reserve_bytes(size_t more);
  void* release_bytes();

  void* bytes_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

// Of elements that may be moved as bytes. What is added is lost, and nothing else, when
// memory is exhausted.
template <typename T>
class Array : private ByteArray {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  // False when memory is exhausted.
  bool add(const T* items, size_t count) { return add_bytes(items, count * sizeof(T)); }
  bool add(const T& item) { return add_bytes(&item, sizeof(T)); }

  // Makes room for `more` elements; false when memory is exhausted.
  bool reserve(size_t more) {
    size_t bytes = 0;
    return !__builtin_mul_overflow(more, sizeof(T), &bytes) && reserve_bytes(bytes);
  }

  void cut(size_t size) { size_ = size * sizeof(T); }

  // Hands over the block, for the caller to free; null for none. The array is empty then.
  T* release() { return static_cast<T*>(release_bytes()); }

  size_t size() const { return size_ / sizeof(T); }
  const T* data() const { return static_cast<const T*>(bytes_); }
  const T* begin() const { return data(); }
  const T* end() const { return data() + size(); }
  const T& operator[](size_t at) const { return data()[at]; }
  T& operator[](size_t at) { return static_cast<T*>(bytes_)[at]; }
};

}  // namespace groundwork

#endif
