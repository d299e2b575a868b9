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

// The four bytes of a word, each as lower() gives it.
constexpr std::uint32_t lower_word(std::uint32_t word) {
  const std::uint32_t low_bits = word & 0x7f7f7f7fu;
  const std::uint32_t from_a = low_bits + 0x01010101u * (0x80 - 'A');  // top bit: >= 'A'
  const std::uint32_t past_z = low_bits + 0x01010101u * (0x7f - 'Z');  // top bit: > 'Z'
  const std::uint32_t is_upper = from_a & ~past_z & ~word & 0x80808080u;
  return word | is_upper >> 2;
}

// Whether a stored, NUL-terminated name is `name`, which holds no NUL.
inline bool same_name(const char* stored, std::string_view name) {
  for (const char character : name) {
    if (*stored != character && lower(*stored) != lower(character)) return false;
    ++stored;
  }
  return *stored == '\0';
}

// Equal for names that differ in case only.
inline std::uint32_t hash_name(std::string_view name) {
  const auto mix = [](std::uint32_t hash, std::uint32_t word) {
    hash = (hash ^ lower_word(word)) * 0x9e3779b1u;
    return hash ^ hash >> 15;
  };
  const char* at = name.data();
  std::size_t left = name.size();
  auto hash = static_cast<std::uint32_t>(left);
  std::uint32_t word = 0;
  for (; left >= sizeof word; left -= sizeof word, at += sizeof word) {
    std::memcpy(&word, at, sizeof word);
    hash = mix(hash, word);
  }
  for (word = 0; left > 0; --left) word = word << 8 | static_cast<unsigned char>(*at++);
  return mix(mix(hash, word), 0);
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
