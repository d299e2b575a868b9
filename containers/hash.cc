// Hash table: open addressing with linear probing in one flat array of pointers to entries.
// Removal leaves holes that searches pass over and insertions fill.
//
// A search that cannot stop at a hole walks the whole table for a miss. Tables whose key
// functions are our own, so that equal keys are known to have equal hashes, therefore have
// an index behind the slots, which gives the same answers without the walk.
//
// SPDX-License-Identifier: MIT

#include <groundwork/hash.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "containers/slot_index.h"
#include "core/check.h"

using namespace groundwork;

namespace {

struct Entry {
  void* key;
  void* value;
  uint32_t hashed;  // of the key; costs nothing, heaps round the block up anyway
};

// What is known about a table's hash and equality functions.
enum class Keys { kCallers, kPointers, kInts, kStrings };

}  // namespace

struct GHash {
  Entry** slots;  // null where empty; one of them always is
  uint32_t size;
  uint32_t count;
  GHashFunc hash_func;
  GEqualFunc equal_func;  // null compares pointers
  GHashDestroyFunc destroy_func;
  // Callers know the fields above.
  Keys keys;
  bool had_removals;  // so a key may be stored twice
  SlotIndex index;    // in the block of the slots; false when the table is walked
};
static_assert(offsetof(GHash, size) == sizeof(void*) &&
              offsetof(GHash, count) == sizeof(void*) + sizeof(uint32_t) &&
              offsetof(GHash, hash_func) == sizeof(void*) + 2 * sizeof(uint32_t) &&
              offsetof(GHash, equal_func) == offsetof(GHash, hash_func) + sizeof(void*) &&
              offsetof(GHash, destroy_func) ==
                  offsetof(GHash, equal_func) + sizeof(void*) &&
              offsetof(Entry, value) == sizeof(void*));

namespace {

constexpr char kSource[] = "g_hash";

bool equal_text(const void* a, const void* b) {
  return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b)) == 0;
}

uint32_t pointed_to(const void* key) {
  return *static_cast<const uint32_t*>(key);
}

uint32_t hash_of_text(const void* key) {
  uint32_t hashed = 0;
  // Kept: bytes are signed everywhere, so non-ASCII text hashes alike on every platform.
  // Four at a time, so that one multiplication does not wait for another.
  for (const auto* byte = static_cast<const signed char*>(key);; byte += 4) {
    const auto at = [byte](int i) { return static_cast<uint32_t>(byte[i]); };
    if (byte[0] == 0) return hashed;
    if (byte[1] == 0) return hashed * 31 + at(0);
    if (byte[2] == 0) return hashed * (31 * 31) + at(0) * 31 + at(1);
    if (byte[3] == 0) {
      return hashed * (31 * 31 * 31) + at(0) * (31 * 31) + at(1) * 31 + at(2);
    }
    hashed = hashed * (31 * 31 * 31 * 31) + at(0) * (31 * 31 * 31) + at(1) * (31 * 31) +
             at(2) * 31 + at(3);
  }
}

// Our own equality functions, known at compile time. Tables that use one of them together
// with its hash function may have an index, for their equal keys have equal hashes. Strings
// compared as pointers are not among them: such a string may change while it is stored, and
// with it its hash, but not what it equals.
bool equal_strings(const void* stored, const void* key) {
  return equal_text(stored, key);
}
bool equal_ints(const void* stored, const void* key) {
  return pointed_to(stored) == pointed_to(key);
}
bool equal_pointers(const void* stored, const void* key) {
  return stored == key;
}

Keys keys_of(GHashFunc hash_func, GEqualFunc equal_func) {
  if (hash_func == g_hash_str && equal_func == g_hash_str_equal) return Keys::kStrings;
  if (hash_func == g_hash_int && equal_func == g_hash_int_equal) return Keys::kInts;
  if (hash_func == g_hash_direct &&
      (equal_func == nullptr || equal_func == g_hash_direct_equal)) {
    return Keys::kPointers;
  }
  return Keys::kCallers;
}

uint32_t home_slot(const GHash& hash, uint32_t hashed) {
  const uint32_t mask = hash.size - 1;
  return (hash.size & mask) == 0 ? hashed & mask : hashed % hash.size;
}

uint32_t next_slot(const GHash& hash, uint32_t slot) {
  return slot + 1 == hash.size ? 0 : slot + 1;
}

// How far a probe run from `home` has gone when it meets `slot`.
uint32_t distance(const GHash& hash, uint32_t home, uint32_t slot) {
  return slot >= home ? slot - home : slot + (hash.size - home);
}

// The first hole from `slot` on.
uint32_t first_hole(const GHash& hash, uint32_t slot) {
  if (hash.slots[slot] == nullptr) return slot;
  if (hash.index) return hash.index.first_hole(slot);
  while (hash.slots[slot] != nullptr) slot = next_slot(hash, slot);
  return slot;
}

// --- tables that are walked ---

bool matches(GEqualFunc equal, const Entry& entry, const void* key) {
  return equal != nullptr ? equal(entry.key, key) != 0 : entry.key == key;
}

// The first slot from `from` on, and before `to`, with an entry for `key`; `size` when
// there is none. Holes are passed over: removal leaves them in the middle of a probe run.
uint32_t walk(const GHash& hash, const void* key, uint32_t from, uint32_t to) {
  Entry* const* const slots = hash.slots;
  const GEqualFunc equal = hash.equal_func;
  for (uint32_t slot = from; slot < to; ++slot) {
    const Entry* const entry = slots[slot];
    if (entry != nullptr && matches(equal, *entry, key)) return slot;
  }
  return hash.size;
}

uint32_t walk_to_match(const GHash& hash, const void* key, uint32_t hashed) {
  const uint32_t home = home_slot(hash, hashed);
  const uint32_t slot = walk(hash, key, home, hash.size);
  return slot != hash.size ? slot : walk(hash, key, 0, home);
}

// Where `key` is to be stored: the slot of its entry, or a hole.
// Kept: the run ends at the first hole, although a search would go on. A key beyond the
// hole is stored twice.
uint32_t walk_to_insertion(const GHash& hash, const void* key, uint32_t hashed) {
  uint32_t slot = home_slot(hash, hashed);
  while (hash.slots[slot] != nullptr && !matches(hash.equal_func, *hash.slots[slot], key)) {
    slot = next_slot(hash, slot);
  }
  return slot;
}

// --- tables with an index: the same slots without the walk ---

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
[[gnu::noinline]] uint32_t indexed_match(const GHash& hash, const void* key,
                                         uint32_t hashed) {
  const auto holds = [&](uint32_t slot) {
    const Entry& entry = *hash.slots[slot];
    return entry.hashed == hashed && equal(entry.key, key);
  };
  if (hash.had_removals) [[unlikely]]
    return nearest_match(hash, hashed, holds);
  return hash.index.find_candidate(hashed, holds);
}

uint32_t match_of(const GHash& hash, const void* key, uint32_t hashed) {
  if (!hash.index) return walk_to_match(hash, key, hashed);
  if (hash.keys == Keys::kStrings) return indexed_match<equal_strings>(hash, key, hashed);
  if (hash.keys == Keys::kInts) return indexed_match<equal_ints>(hash, key, hashed);
  return indexed_match<equal_pointers>(hash, key, hashed);
}

uint32_t indexed_insertion(const GHash& hash, const void* key, uint32_t hashed) {
  const uint32_t home = home_slot(hash, hashed);
  const uint32_t match = match_of(hash, key, hashed);
  if (match != hash.size && !hash.had_removals) return match;
  const uint32_t hole = first_hole(hash, home);
  return match != hash.size && distance(hash, home, match) < distance(hash, home, hole)
             ? match
             : hole;
}

// --- either ---

// What hash_func would answer.
uint32_t hash_of(const GHash& hash, const void* key) {
  if (hash.keys == Keys::kStrings) return hash_of_text(key);
  if (hash.keys == Keys::kInts) return pointed_to(key);
  return hash.hash_func(key);
}

uint32_t find_slot(const GHash& hash, const void* key) {
  return match_of(hash, key, hash_of(hash, key));
}

uint32_t insertion_slot(const GHash& hash, const void* key, uint32_t hashed) {
  return hash.index ? indexed_insertion(hash, key, hashed)
                    : walk_to_insertion(hash, key, hashed);
}

void put(GHash& hash, uint32_t slot, Entry* entry) {
  hash.slots[slot] = entry;
  if (hash.index) hash.index.add(entry->hashed, slot);
}

// Gives the table `size` empty slots and, if it should have one and there is memory, an
// index. False when memory is exhausted, with nothing changed.
bool allocate_slots(GHash& hash, uint32_t size) {
  void* block = nullptr;
  const uint64_t slot_bytes = uint64_t{size} * sizeof(Entry*);
  if (hash.keys != Keys::kCallers && size <= SlotIndex::kMaxSlots) {
    const uint64_t bytes = slot_bytes + SlotIndex::words(size) * sizeof(uint32_t);
    if (bytes <= PTRDIFF_MAX) block = std::calloc(1, static_cast<size_t>(bytes));
  }
  const bool indexed = block != nullptr;
  if (!indexed && slot_bytes <= PTRDIFF_MAX) block = std::calloc(size, sizeof(Entry*));
  if (block == nullptr) [[unlikely]]
    return false;
  hash.slots = static_cast<Entry**>(block);
  hash.size = size;
  hash.index = indexed ? SlotIndex(reinterpret_cast<uint32_t*>(hash.slots + size), size)
                       : SlotIndex();
  return true;
}

// Doubles the table; false when memory is exhausted, with nothing changed.
bool grow(GHash& hash) {
  GHash grown = hash;
  if (hash.size > UINT32_MAX / 2 || !allocate_slots(grown, hash.size * 2)) return false;
  for (uint32_t slot = 0; slot < hash.size; ++slot) {
    // The entries lie anywhere: ask for those that come soon.
    if (hash.size - slot > 8) __builtin_prefetch(hash.slots[slot + 8]);
    Entry* const entry = hash.slots[slot];
    if (entry == nullptr) continue;
    if (!hash.index) entry->hashed = hash.hash_func(entry->key);
    put(grown, first_hole(grown, home_slot(grown, entry->hashed)), entry);
  }
  std::free(hash.slots);
  hash = grown;
  return true;
}

}  // namespace

extern "C" GHash* g_hash_new(unsigned size, GHashFunc hash_func, GEqualFunc equal_func,
                             GHashDestroyFunc destroy_func) {
  auto* const hash = static_cast<GHash*>(std::malloc(sizeof(GHash)));
  if (hash == nullptr) [[unlikely]]
    return nullptr;
  *hash = {};
  hash->hash_func = hash_func != nullptr ? hash_func : g_hash_direct;
  hash->equal_func = equal_func;
  hash->destroy_func = destroy_func;
  hash->keys = keys_of(hash->hash_func, equal_func);
  if (!allocate_slots(*hash, size != 0 ? size : 1)) [[unlikely]] {
    std::free(hash);
    return nullptr;
  }
  return hash;
}

extern "C" void g_hash_free(GHash* hash) {
  CHECK_ARG(hash != NULL);
  for (uint32_t slot = 0; slot < hash->size; ++slot) {
    Entry* const entry = hash->slots[slot];
    if (entry == nullptr) continue;
    if (hash->destroy_func != nullptr) hash->destroy_func(entry->key, entry->value);
    std::free(entry);
    hash->slots[slot] = nullptr;
  }
  std::free(hash->slots);
  std::free(hash);
}

extern "C" int g_hash_insert(GHash* hash, void* key, void* value) {
  CHECK_ARG(hash != NULL, -1);
  const uint32_t hashed = hash_of(*hash, key);
  uint32_t slot = insertion_slot(*hash, key, hashed);
  if (Entry* const entry = hash->slots[slot]; entry != nullptr) {
    *entry = {key, value, hashed};
    return 0;
  }
  auto* const entry = static_cast<Entry*>(std::malloc(sizeof(Entry)));
  if (entry == nullptr) [[unlikely]]
    return -1;
  if (hash->count == hash->size - 1) {
    if (!grow(*hash)) [[unlikely]] {
      std::free(entry);
      return -1;
    }
    slot = first_hole(*hash, home_slot(*hash, hashed));
  }
  *entry = {key, value, hashed};
  put(*hash, slot, entry);
  ++hash->count;
  return 0;
}

extern "C" void* g_hash_find(GHash* hash, const void* key) {
  CHECK_ARG(hash != NULL, nullptr);
  const uint32_t slot = find_slot(*hash, key);
  return slot != hash->size ? hash->slots[slot]->value : nullptr;
}

extern "C" int g_hash_remove(GHash* hash, const void* key) {
  CHECK_ARG(hash != NULL, -1);
  const uint32_t slot = find_slot(*hash, key);
  if (slot == hash->size) return -1;
  Entry* const entry = hash->slots[slot];
  // The entry is still in place while the callback runs; `key` may be gone afterwards.
  if (hash->destroy_func != nullptr) hash->destroy_func(entry->key, entry->value);
  if (hash->index) {
    hash->index.remove(entry->hashed, slot,
                       [&](uint32_t other) { return hash->slots[other]->hashed; });
  }
  std::free(entry);
  hash->slots[slot] = nullptr;
  --hash->count;
  hash->had_removals = hash->count != 0;
  return 0;
}

extern "C" unsigned g_hash_count(GHash* hash) {
  CHECK_ARG(hash != NULL, 0);
  return hash->count;
}

extern "C" uint32_t g_hash_direct(const void* key) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
}

extern "C" int g_hash_direct_equal(const void* a, const void* b) {
  return a == b ? 1 : 0;
}

extern "C" uint32_t g_hash_int(const void* key) {
  return pointed_to(key);
}

extern "C" int g_hash_int_equal(const void* a, const void* b) {
  return pointed_to(a) == pointed_to(b) ? 1 : 0;
}

extern "C" uint32_t g_hash_str(const void* key) {
  return hash_of_text(key);
}

extern "C" int g_hash_str_equal(const void* a, const void* b) {
  return equal_text(a, b) ? 1 : 0;
}
