// The hash table's record, shared by the files that search, change and walk it.
//
// Callbacks may use the table that calls them. The rule for every loop that calls one:
// after the call the slots are read again, and never more of them than there were at the
// start, so the loop ends whatever the callback did. Slots are never moved but by growth,
// and the table never shrinks, so `size` shows whether a slot number still means what it
// did.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_HASH_TABLE_H
#define GROUNDWORK_CONTAINERS_HASH_TABLE_H

#include <groundwork/hash.h>

#include <cstddef>
#include <cstdint>

#include "containers/slot_index.h"

namespace groundwork {

struct HashEntry {
  void* key;
  void* value;
  uint32_t hashed;  // of the key; costs nothing, heaps round the block up anyway
};

// What is known about a table's hash and equality functions.
enum class HashKeys : uint8_t { kCallers, kPointers, kInts, kStrings };

}  // namespace groundwork

struct GHash {
  groundwork::HashEntry** slots;  // null where empty; one of them always is
  uint32_t size;
  uint32_t count;
  GHashFunc hash_func;
  GEqualFunc equal_func;  // null compares pointers
  GHashDestroyFunc destroy_func;
  // Callers know the fields above.
  groundwork::HashKeys keys;
  bool had_removals;            // since it grew, so there may be holes in probe runs
  bool has_copies;              // an insertion through the index stored some key again
  bool is_being_freed;          // by g_hash_free(), which is calling destroy_func
  uint32_t insertions_left;     // while the table is being freed
  groundwork::SlotIndex index;  // in the block of the slots; false when the table is walked
};
static_assert(offsetof(GHash, slots) == 0 && offsetof(GHash, size) == sizeof(void*) &&
              offsetof(GHash, count) == sizeof(void*) + sizeof(uint32_t) &&
              offsetof(GHash, hash_func) == sizeof(void*) + 2 * sizeof(uint32_t) &&
              offsetof(GHash, equal_func) == offsetof(GHash, hash_func) + sizeof(void*) &&
              offsetof(GHash, destroy_func) ==
                  offsetof(GHash, equal_func) + sizeof(void*) &&
              offsetof(groundwork::HashEntry, value) == sizeof(void*));

namespace groundwork {

inline uint32_t home_slot(const GHash& hash, uint32_t hashed) {
  const uint32_t mask = hash.size - 1;
  return (hash.size & mask) == 0 ? hashed & mask : hashed % hash.size;
}

inline uint32_t next_slot(const GHash& hash, uint32_t slot) {
  return slot + 1 == hash.size ? 0 : slot + 1;
}

// The first hole from `slot` on.
inline uint32_t first_hole(const GHash& hash, uint32_t slot) {
  if (hash.slots[slot] == nullptr) return slot;
  if (hash.index) return hash.index.first_hole(slot);
  while (hash.slots[slot] != nullptr) slot = next_slot(hash, slot);
  return slot;
}

}  // namespace groundwork

#endif
