// SPDX-License-Identifier: MIT

#include "core/byte_array.h"

#include <algorithm>

#include "core/copy_text.h"

namespace groundwork {

bool ByteArray::reserve(size_t more) {
  constexpr size_t kFewest = 256;
  size_t needed = 0;
  if (__builtin_add_overflow(size_, more, &needed)) return false;
  if (needed <= capacity_) return true;
  needed = std::max({needed, 2 * capacity_, kFewest});
  void* const grown = std::realloc(bytes_, needed);
  if (grown == nullptr) return false;
  bytes_ = static_cast<char*>(grown);
  capacity_ = needed;
  return true;
}

bool ByteArray::add(std::string_view text) {
  if (text.empty()) return true;
  char* const end = extend(text.size());
  if (end == nullptr) return false;
  copy_text(end, text.data(), text.size());
  return true;
}

}  // namespace groundwork
