// An array that grows.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_ARRAY_H
#define GROUNDWORK_SAFE_CONF_ARRAY_H

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

namespace groundwork {

// Of elements that may be moved as bytes. What is added is lost, and nothing else, when
// memory is exhausted.
template <typename T>
class Array {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  Array() = default;
  ~Array() { std::free(items_); }
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;

  // False when memory is exhausted.
  bool add(const T* items, std::size_t count) {
    if (count > capacity_ - size_ && !reserve(count)) return false;
    if (count != 0) std::memcpy(items_ + size_, items, count * sizeof(T));
    size_ += count;
    return true;
  }
  bool add(const T& item) { return add(&item, 1); }

  // Makes room for `more` elements; false when memory is exhausted.
  bool reserve(std::size_t more) {
    std::size_t needed = 0;
    std::size_t bytes = 0;
    if (__builtin_add_overflow(size_, more, &needed)) return false;
    if (needed <= capacity_) return true;
    if (needed < 2 * capacity_) needed = 2 * capacity_;
    if (__builtin_mul_overflow(needed, sizeof(T), &bytes)) return false;
    auto* const grown = static_cast<T*>(std::realloc(items_, bytes));
    if (grown == nullptr) return false;
    items_ = grown;
    capacity_ = needed;
    return true;
  }

  void cut(std::size_t size) { size_ = size; }

  // Hands over the block, for the caller to free; null for none. The array is empty then.
  T* release() {
    size_ = 0;
    capacity_ = 0;
    return std::exchange(items_, nullptr);
  }

  std::size_t size() const { return size_; }
  const T* data() const { return items_; }
  const T* begin() const { return items_; }
  const T* end() const { return items_ + size_; }
  const T& operator[](std::size_t at) const { return items_[at]; }
  T& operator[](std::size_t at) { return items_[at]; }

 private:
  T* items_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace groundwork

#endif
