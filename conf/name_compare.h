// Comparison of section and key names, ignoring the case of the letters A to Z only, as in
// the C locale. Not with strcasecmp(): an index built under one locale must still be
// correct after the program has set another.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_NAME_COMPARE_H
#define GROUNDWORK_CONF_NAME_COMPARE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/word.h"

namespace groundwork {

// A name of less than four bytes as a word. Longer names are read in words, the last of
// which may overlap the one before.
inline uint32_t short_word(const char* name, size_t length) {
  uint32_t word = 0;
  for (size_t at = 0; at < length; ++at) {
    word = word << 8 | static_cast<unsigned char>(name[at]);
  }
  return word;
}

// The bit in which upper and lower case differ, in each byte of a word.
constexpr uint32_t kCaseBits = 0x20202020;

// The case bit of each byte of a word that is a letter.
constexpr uint32_t case_bits_of_letters(uint32_t word) {
  const uint32_t low_bits = (word | kCaseBits) & 0x7f7f7f7fu;
  const uint32_t from_a = low_bits + 0x01010101u * (0x80 - 'a');  // top bit: >= 'a'
  const uint32_t past_z = low_bits + 0x01010101u * (0x7f - 'z');  // top bit: > 'z'
  return (from_a & ~past_z & ~word & 0x80808080u) >> 2;
}

constexpr bool same_word(uint32_t a, uint32_t b) {
  const uint32_t difference = a ^ b;
  return (difference & ~kCaseBits) == 0 && (difference & ~case_bits_of_letters(a)) == 0;
}

// For names of equal lengths.
bool same_but_for_case(const char* a, const char* b, size_t length);

// For names of equal lengths.
inline bool same_spelling(const char* a, const char* b, size_t length) {
  if (length < 4) return false;  // not worth the code
  const size_t last = length - 4;
  for (size_t at = 0; at < last; at += 4) {
    if (load_word(a + at) != load_word(b + at)) return false;
  }
  return load_word(a + last) == load_word(b + last);
}

// Returns whether two names are the same. Most have the spelling that they had first.
inline bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() && (same_spelling(a.data(), b.data(), a.size()) ||
                                  same_but_for_case(a.data(), b.data(), a.size()));
}

}  // namespace groundwork

#endif
