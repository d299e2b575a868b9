// Four bytes of a text as a number.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_LOAD_WORD_H
#define GROUNDWORK_CONF_LOAD_WORD_H

#include <cstdint>
#include <cstring>

namespace groundwork {

// In native byte order, from any address.
inline uint32_t load_word(const char* at) {
  uint32_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

}  // namespace groundwork

#endif
