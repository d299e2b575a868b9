// SPDX-License-Identifier: MIT

#include "safe/conf_array.h"

#include <cstring>

using namespace groundwork;

bool ByteArray::add_bytes(const void* bytes, size_t size) {
  if (size > capacity_ - size_ && !reserve_bytes(size)) return false;
  if (size != 0) std::memcpy(static_cast<char*>(bytes_) + size_, bytes, size);
  size_ += size;
  return true;
}

bool ByteArray::reserve_bytes(size_t more) {
  size_t needed = 0;
  if (__builtin_add_overflow(size_, more, &needed)) return false;
  if (needed <= capacity_) return true;
  if (needed < 2 * capacity_) needed = 2 * capacity_;
  void* const grown = std::realloc(bytes_, needed);
  if (grown == nullptr) return false;
  bytes_ = grown;
  capacity_ = needed;
  return true;
}

void* ByteArray::release_bytes() {
  size_ = 0;
  capacity_ = 0;
  return std::exchange(bytes_, nullptr);
}
