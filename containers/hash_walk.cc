// Look-ups that walk the slots. The equality function may be the caller's, and may change
// the table.
//
// SPDX-License-Identifier: MIT

#include "containers/hash_walk.h"

#include <cstdint>

using namespace groundwork;

namespace {

constexpr uint32_t kNone = UINT32_MAX;  // no table has that many slots
constexpr uint32_t kGrown = UINT32_MAX - 1;

enum class Holes { kPassed, kEnd };

// Returns the first slot from `from` up to `to` with an entry for `key`, or with a hole if
// holes end the run; kNone if there is none; kGrown if the table has grown meanwhile.
template <Holes holes>
uint32_t walk_part(const GHash& hash, const void* key, uint32_t from, uint32_t to) {
  const uint32_t size = hash.size;
  HashEntry* const* const slots = hash.slots;
  const GEqualFunc equal = hash.equal_func;
  for (uint32_t slot = from; slot < to; ++slot) {
    const HashEntry* const entry = slots[slot];
    if (entry == nullptr) {
      if (holes == Holes::kEnd) return slot;
      continue;
    }
    const void* const stored = entry->key;
    if (equal == nullptr) {
      if (stored == key) return slot;
      continue;
    }
    const bool is_equal = equal(stored, key) != 0;
    if (hash.size != size) return kGrown;
    // The function may have removed the entry that it compared.
    if (is_equal && slots[slot] != nullptr && slots[slot]->key == stored) return slot;
  }
  return kNone;
}

// Walks once around the table from the home slot, and once more if an equality function
// made the table grow, but not a third time: a function that keeps inserting must not keep
// the look-up going.
template <Holes holes>
uint32_t walk(const GHash& hash, const void* key, uint32_t hashed) {
  for (int rounds = 0; rounds < 2; ++rounds) {
    const uint32_t home = home_slot(hash, hashed);
    uint32_t slot = walk_part<holes>(hash, key, home, hash.size);
    if (slot == kNone) slot = walk_part<holes>(hash, key, 0, home);
    if (slot != kGrown) return slot;
  }
  return kNone;
}

}  // namespace

namespace groundwork {

uint32_t walk_to_match(const GHash& hash, const void* key, uint32_t hashed) {
  const uint32_t slot = walk<Holes::kPassed>(hash, key, hashed);
  return slot != kNone ? slot : hash.size;
}

uint32_t walk_to_insertion(const GHash& hash, const void* key, uint32_t hashed) {
  const uint32_t slot = walk<Holes::kEnd>(hash, key, hashed);
  // kNone only if the equality function moved the hole.
  return slot != kNone ? slot : first_hole(hash, home_slot(hash, hashed));
}

}  // namespace groundwork
