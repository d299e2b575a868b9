// Hashes of names: equal for names that same_name() considers the same. The upper bits are
// the best. `seed` is process_seed().
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_NAME_HASH_H
#define GROUNDWORK_CONF_NAME_HASH_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "conf/name_compare.h"

namespace groundwork {

// Ignores the case bit of every character, letter or not: other names that become equal
// cost a comparison.
constexpr uint32_t mix(uint32_t hash, uint32_t word) {
  hash = (hash ^ (word | kCaseBits)) * 0x9e3779b1u;
  return hash ^ hash >> 15;
}

// Fast, but names that collide for any seed can be constructed.
inline uint32_t hash_name(std::string_view name, uint32_t seed) {
  uint32_t hash = seed ^ static_cast<uint32_t>(name.size());
  if (name.size() < 4) return mix(hash, short_word(name.data(), name.size()));
  const size_t last = name.size() - 4;
  for (size_t at = 0; at < last; at += 4) {
    hash = mix(hash, load_word(name.data() + at));
  }
  return mix(hash, load_word(name.data() + last));
}

// About five times slower; colliding names cannot be found without the seed.
uint32_t keyed_hash(const char* name, size_t length, uint32_t seed);

// A number that is different each time a program is started.
uint32_t process_seed();

}  // namespace groundwork

#endif
