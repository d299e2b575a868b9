// Hashes of names: equal for names that same_name() calls the same.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_NAME_HASH_H
#define GROUNDWORK_CONF_NAME_HASH_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "conf/name_compare.h"

namespace groundwork {

// Leaves the case bit out of every character, letter or not: names that are then alike cost
// a comparison.
constexpr std::uint32_t mix(std::uint32_t hash, std::uint32_t word) {
  hash = (hash ^ (word | kCaseBits)) * 0x9e3779b1u;
  return hash ^ hash >> 15;
}

// Its upper bits are the best.
inline std::uint32_t hash_name(std::string_view name) {
  auto hash = static_cast<std::uint32_t>(name.size());
  if (name.size() < 4) return mix(hash, short_word(name.data(), name.size()));
  const std::size_t last = name.size() - 4;
  for (std::size_t at = 0; at < last; at += 4) {
    hash = mix(hash, load_word(name.data() + at));
  }
  return mix(hash, load_word(name.data() + last));
}

}  // namespace groundwork

#endif
