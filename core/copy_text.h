// Copying text that is usually short.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_COPY_TEXT_H
#define GROUNDWORK_CORE_COPY_TEXT_H

#include <cstddef>
#include <cstring>

namespace groundwork {

// Like memcpy(), but returns the end of the copy. Separators, signs, numbers and many names
// are copied in less time than a call takes.
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
