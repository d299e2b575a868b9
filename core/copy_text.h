// Copying text that is mostly short.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_COPY_TEXT_H
#define GROUNDWORK_CORE_COPY_TEXT_H

#include <cstddef>
#include <cstring>

namespace groundwork {

// As memcpy(). Separators, signs, numbers and many names are shorter than the way there and
// back. Returns the place behind the copy.
inline char* copy_text(char* out, const char* text, size_t length) {
  if (length < 8) {
    for (size_t at = 0; at < length; ++at) out[at] = text[at];
  } else {
    std::memcpy(out, text, length);
  }
  return out + length;
}

}  // namespace groundwork

#endif
