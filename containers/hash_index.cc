// Search through the index. Runs no function of the caller.
//
// SPDX-License-Identifier: MIT

#include "containers/hash_index.h"

#include <cstdint>
#include <cstring>

using namespace groundwork;

namespace {

// Our own equality functions, known at compile time.
bool equal_strings(const void* stored, const void* key) {
  return std::strcmp(static_cast<const char*>(stored), static_cast<const char*>(key)) == 0;
}
bool equal_ints(const void* stored, const void* key) {
  return *static_cast<const uint32_t*>(stored) == *static_cast<const uint32_t*>(key);
}
bool equal_pointers(const void* stored, const void* key) {
  return stored == key;
}

// How far a probe run from `home` has gone when it meets `slot`.
uint32_t distance(const GHash& hash, uint32_t home, uint32_t slot) {
  return slot >= home ? slot - home : slot + (hash.size - home);
}

// Of several copies of a key the one that is met first.
template <typename Holds>
[[gnu::noinline]] uint32_t nearest_match(const GHash& hash, uint32_t hashed, Holds holds) {
  const uint32_t home = home_slot(hash, hashed);
  uint32_t nearest = hash.size;
  uint32_t nearest_distance = hash.size;
  hash.index.find_candidate(hashed, [&](uint32_t slot) {
    const uint32_t slot_distance = distance(hash, home, slot);
    if (slot_distance < nearest_distance && holds(slot)) {
      nearest = slot;
      nearest_distance = slot_distance;
    }
    return false;
  });
  return nearest;
}

template <auto equal>
[[gnu::noinline]] uint32_t match(const GHash& hash, const void* key, uint32_t hashed) {
  const auto holds = [&](uint32_t slot) {
    const HashEntry& entry = *hash.slots[slot];
    return entry.hashed == hashed && equal(entry.key, key);
  };
  if (hash.had_removals) [[unlikely]]
    return nearest_match(hash, hashed, holds);
  return hash.index.find_candidate(hashed, holds);
}

}  // namespace

namespace groundwork {

uint32_t indexed_match(const GHash& hash, const void* key, uint32_t hashed) {
  if (hash.keys == HashKeys::kStrings) return match<equal_strings>(hash, key, hashed);
  if (hash.keys == HashKeys::kInts) return match<equal_ints>(hash, key, hashed);
  return match<equal_pointers>(hash, key, hashed);
}

uint32_t indexed_insertion(const GHash& hash, const void* key, uint32_t hashed) {
  const uint32_t home = home_slot(hash, hashed);
  const uint32_t match = indexed_match(hash, key, hashed);
  if (match != hash.size && !hash.had_removals) return match;
  const uint32_t hole = first_hole(hash, home);
  return match != hash.size && distance(hash, home, match) < distance(hash, home, hole)
             ? match
             : hole;
}

}  // namespace groundwork
