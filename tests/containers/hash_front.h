// The public front of a hash table's record and of an entry's: callers know them.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CONTAINERS_HASH_FRONT_H
#define GROUNDWORK_TESTS_CONTAINERS_HASH_FRONT_H

#include <groundwork/hash.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace test {

struct HashEntry {
  void* key;
  void* value;
};

struct HashTable {
  HashEntry** slots;
  uint32_t size;
  uint32_t count;
  GHashFunc hash_func;
  GEqualFunc equal_func;
  GHashDestroyFunc destroy_func;
};

inline const HashTable& table_of(const GHash* hash) {
  return *reinterpret_cast<const HashTable*>(hash);
}

// What the table holds, slot by slot; {null, null} is a hole.
inline std::vector<std::pair<void*, void*>> slots_of(const GHash* hash) {
  const HashTable& table = table_of(hash);
  std::vector<std::pair<void*, void*>> slots(table.size);
  for (uint32_t slot = 0; slot < table.size; ++slot) {
    if (const HashEntry* const entry = table.slots[slot]) {
      slots[slot] = {entry->key, entry->value};
    }
  }
  return slots;
}

}  // namespace test

#endif
