// Names of sections and keys: compared ignoring the case of the letters A to Z and of no
// other byte, as the C locale does. Not through strcasecmp(): an index built under one
// locale must still be right after the program has chosen another.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_NAME_H
#define GROUNDWORK_CONF_NAME_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace groundwork {

constexpr unsigned char lower(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte | 0x20) : byte;
}

// The four bytes of a word, each as lower() gives it, at once.
constexpr std::uint32_t lower_word(std::uint32_t word) {
  const std::uint32_t low_bits = word & 0x7f7f7f7fu;
  const std::uint32_t from_a = low_bits + 0x01010101u * (0x80 - 'A');  // top bit: >= 'A'
  const std::uint32_t past_z = low_bits + 0x01010101u * (0x7f - 'Z');  // top bit: > 'Z'
  const std::uint32_t is_upper = from_a & ~past_z & ~word & 0x80808080u;
  return word | is_upper >> 2;
}

inline std::uint32_t load_word(const char* at) {
  std::uint32_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

// Names of at least four bytes are gone through in words, the last of which may overlap the
// one before.
constexpr std::size_t next_word(std::size_t at, std::size_t last) {
  return at + 4 < last ? at + 4 : last;
}

// Whether two names are the same.
inline bool same_name(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  if (a.size() < 4) {
    for (std::size_t at = 0; at < a.size(); ++at) {
      if (lower(a[at]) != lower(b[at])) return false;
    }
    return true;
  }
  const std::size_t last = a.size() - 4;
  for (std::size_t at = 0;; at = next_word(at, last)) {
    const std::uint32_t word_a = load_word(a.data() + at);
    const std::uint32_t word_b = load_word(b.data() + at);
    if (word_a != word_b && lower_word(word_a) != lower_word(word_b)) return false;
    if (at == last) return true;
  }
}

constexpr std::uint32_t mix(std::uint32_t hash, std::uint32_t word) {
  hash = (hash ^ lower_word(word)) * 0x9e3779b1u;
  return hash ^ hash >> 15;
}

// Equal for names that are the same; its upper bits are the best.
inline std::uint32_t hash_name(std::string_view name) {
  auto hash = static_cast<std::uint32_t>(name.size());
  if (name.size() < 4) {
    std::uint32_t word = 0;
    for (const char character : name)
      word = word << 8 | static_cast<unsigned char>(character);
    return mix(hash, word);
  }
  const std::size_t last = name.size() - 4;
  for (std::size_t at = 0;; at = next_word(at, last)) {
    hash = mix(hash, load_word(name.data() + at));
    if (at == last) return hash;
  }
}

constexpr bool is_space(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

inline std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace groundwork

#endif
