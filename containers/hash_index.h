// Look-ups through the index of a table that uses our own key functions. They find the
// slots that a walk would find, without the walk, and call no function of the caller.
//
// Only for hash.cc; in a header so that the compiler can inline it.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_HASH_INDEX_H
#define GROUNDWORK_CONTAINERS_HASH_INDEX_H

#include <cstdint>
#include <cstring>

#include "containers/hash_table.h"
#include "core/built_for.h"

namespace groundwork {

// Predicates: whether an entry is for a key. One for each kind of key.
struct SameText {
  const void* key;
  uint32_t hashed;
  bool operator()(const HashEntry& entry) const {
    return entry.hashed == hashed && std::strcmp(static_cast<const char*>(entry.key),
                                                 static_cast<const char*>(key)) == 0;
  }
};
// A 32-bit key is its own hash.
struct SameNumber {
  uint32_t hashed;
  bool operator()(const HashEntry& entry) const { return entry.hashed == hashed; }
};
struct SameWidePointer {
  const void* key;
  uint32_t hashed;
  bool operator()(const HashEntry& entry) const { return entry.key == key; }
};

// Any of them, for code that exists once.
struct SameKey {
  HashKeys keys;
  const void* key;
  uint32_t hashed;
  bool operator()(const HashEntry& entry) const {
    if (keys == HashKeys::kStrings) return SameText{key, hashed}(entry);
    if (sizeof(void*) > sizeof(uint32_t) && keys == HashKeys::kPointers) {
      return SameWidePointer{key, hashed}(entry);
    }
    return SameNumber{hashed}(entry);
  }
};

// The number of slots that a probe run from `home` passes before `slot`.
inline uint32_t distance(const GHash& hash, uint32_t home, uint32_t slot) {
  return slot >= home ? slot - home : slot + (hash.size - home);
}

// Of several copies of a key, returns the first in the probe run.
template <typename Same>
[[gnu::noinline]] uint32_t nearest_match(const GHash& hash, Same same) {
  const uint32_t home = home_slot(hash, same.hashed);
  uint32_t nearest = hash.size;
  uint32_t nearest_distance = hash.size;
  hash.index().find_candidate(same.hashed, [&](uint32_t slot) {
    const uint32_t slot_distance = distance(hash, home, slot);
    if (slot_distance < nearest_distance && same(*hash.slots[slot])) {
      nearest = slot;
      nearest_distance = slot_distance;
    }
    return false;
  });
  return nearest;
}

// Like walk_to_match().
template <typename Same>
[[gnu::always_inline]] inline SlotIndex::Match indexed_match(const GHash& hash, Same same) {
  if (hash.has_copies) [[unlikely]]
    return {nearest_match(hash, same), SlotIndex::kSearch};
  return hash.index().find_candidate(
      same.hashed, [&](uint32_t slot) { return same(*hash.slots[slot]); });
}

// Like walk_to_insertion(), for a key whose indexed_match() is `match`.
IN_LINE_FOR_SPEED SlotIndex::Match indexed_insertion(GHash& hash, uint32_t hashed,
                                                     SlotIndex::Match match) {
  if (match.slot != hash.size && !hash.had_removals) return match;
  const uint32_t home = home_slot(hash, hashed);
  const uint32_t hole = first_hole(hash, home);
  if (match.slot == hash.size) return {hole, match.cell};
  if (distance(hash, home, match.slot) < distance(hash, home, hole)) return match;
  hash.has_copies = true;
  return {hole, SlotIndex::kSearch};
}

}  // namespace groundwork

#endif
