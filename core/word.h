// Words at any address, in native byte order.
//
// Not with memcpy(): for MIPS, GCC would copy the bytes to the stack and load the word from
// there, and the stack protector would guard that copy.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_WORD_H
#define GROUNDWORK_CORE_WORD_H

#include <bit>
#include <cstdint>

namespace groundwork {

struct [[gnu::packed, gnu::may_alias]] UnalignedWord {
  uint32_t value;
};

inline uint32_t load_word(const void* at) {
  return static_cast<const UnalignedWord*>(at)->value;
}

inline void store_word(void* at, uint32_t word) {
  static_cast<UnalignedWord*>(at)->value = word;
}

// The value of a word whose bytes are in memory most significant first, and back.
constexpr uint32_t big_endian(uint32_t word) {
  return std::endian::native == std::endian::big ? word : __builtin_bswap32(word);
}

}  // namespace groundwork

#endif
