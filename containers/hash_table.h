// The hash table's record, shared by the files that search, change and walk it.
//
// Callbacks may use the table that calls them. So every loop that calls one reads the slots
// again after each call, and never more slots than there were at the start, so that it ends
// whatever the callback does. Only growth moves entries, and the table never shrinks, so
// `size` shows whether a slot number is still valid.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_HASH_TABLE_H
#define GROUNDWORK_CONTAINERS_HASH_TABLE_H

#include <groundwork/hash.h>

#include <cstddef>
#include <cstdint>

#include "containers/hash_entries.h"
#include "containers/slot_index.h"
#include "core/built_for.h"

namespace groundwork {

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
  // The layout up to here is known to programs.
  groundwork::HashKeys keys;
  bool has_index : 1;        // after the slots; without one, look-ups walk the table
  bool had_removals : 1;     // since it last grew: probe runs may have holes
  bool has_copies : 1;       // some key may be stored more than once
  bool is_being_freed : 1;   // g_hash_free() is calling destroy_func
  uint32_t insertions_left;  // while the table is being freed
  groundwork::EntryPool entries;

  groundwork::SlotIndex index() const {
    return {reinterpret_cast<uint32_t*>(slots + size), size};
  }
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

// Returns the first hole from `slot` on.
IN_LINE_FOR_SPEED uint32_t first_hole(const GHash& hash, uint32_t slot) {
  if (hash.slots[slot] == nullptr) return slot;
  if (hash.has_index) return hash.index().first_hole(slot);
  while (hash.slots[slot] != nullptr) slot = next_slot(hash, slot);
  return slot;
}

}  // namespace groundwork

#endif
