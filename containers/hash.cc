// Hash table: open addressing with linear probing in one flat array of pointers to entries.
// Removal leaves holes, which look-ups skip and insertions fill.
//
// Since a look-up cannot stop at a hole, a miss walks the whole table (hash_walk.cc).
// Tables that use our own key functions, where equal keys are known to have equal hashes,
// therefore have an index after the slots, which finds the same slots without the walk
// (hash_index.h).
//
// SPDX-License-Identifier: MIT

#include <groundwork/hash.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "containers/hash_index.h"
#include "containers/hash_table.h"
#include "containers/hash_walk.h"
#include "containers/slot_index.h"
#include "core/built_for.h"
#include "core/check.h"

using namespace groundwork;
using Match = SlotIndex::Match;

namespace {

constexpr char kSource[] = "g_hash";

uint32_t pointed_to(const void* key) {
  return *static_cast<const uint32_t*>(key);
}

uint32_t hash_of_pointer(const void* key) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
}

uint32_t hash_of_text(const void* key) {
  uint32_t hashed = 0;
  // Kept: bytes are signed, so that non-ASCII text has the same hash on every platform.
  // Four at a time, so that the multiplications do not depend on each other.
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

// Strings that are hashed as text but compared as pointers do not qualify: such a string
// may change while it is stored, which changes its hash but not what it equals.
HashKeys keys_of(GHashFunc hash_func, GEqualFunc equal_func) {
  if (hash_func == g_hash_str && equal_func == g_hash_str_equal) return HashKeys::kStrings;
  if (hash_func == g_hash_int && equal_func == g_hash_int_equal) return HashKeys::kInts;
  if (hash_func == g_hash_direct &&
      (equal_func == nullptr || equal_func == g_hash_direct_equal)) {
    return HashKeys::kPointers;
  }
  return HashKeys::kCallers;
}

// Returns what hash_func would.
uint32_t hash_of(const GHash& hash, const void* key) {
  if (hash.keys == HashKeys::kStrings) return hash_of_text(key);
  if (hash.keys == HashKeys::kInts) return pointed_to(key);
  if (hash.keys == HashKeys::kPointers) return hash_of_pointer(key);
  return hash.hash_func(key);
}

// Returns a Match as one number, so that it is returned in registers on every target.
template <typename Same>
[[gnu::noinline]] uint64_t packed_match(const GHash& hash, Same same) {
  return std::bit_cast<uint64_t>(indexed_match(hash, same));
}

// Looks a key up in a table with an index. Returns its slot, `size` for a miss.
[[gnu::always_inline]] inline Match match_of(const GHash& hash, const void* key,
                                             uint32_t hashed) {
  if constexpr (!kForSpeed) {
    return std::bit_cast<Match>(packed_match(hash, SameKey{hash.keys, key, hashed}));
  }
  if (hash.keys == HashKeys::kStrings) {
    return std::bit_cast<Match>(packed_match(hash, SameText{key, hashed}));
  }
  if (sizeof(void*) > sizeof(uint32_t) && hash.keys == HashKeys::kPointers) {
    return indexed_match(hash, SameWidePointer{key, hashed});
  }
  return indexed_match(hash, SameNumber{hashed});
}

// Looks a key up. Returns its slot, `size` for a miss.
[[gnu::always_inline]] inline Match find_slot(const GHash& hash, const void* key) {
  const uint32_t hashed = hash_of(hash, key);
  if (!hash.has_index) [[unlikely]]
    return {walk_to_match(hash, key, hashed), SlotIndex::kSearch};
  return match_of(hash, key, hashed);
}

// The same for a string, without the cell, which a look-up does not need.
[[gnu::noinline]] uint32_t find_text_slot(const GHash& hash, const void* key,
                                          uint32_t hashed) {
  return indexed_match(hash, SameText{key, hashed}).slot;
}

// Returns where to store `key`: the slot of its entry, or a hole.
IN_LINE_FOR_SPEED Match insertion_slot(GHash& hash, const void* key, uint32_t hashed) {
  if (!hash.has_index) [[unlikely]]
    return {walk_to_insertion(hash, key, hashed), SlotIndex::kSearch};
  return indexed_insertion(hash, hashed, match_of(hash, key, hashed));
}

IN_LINE_FOR_SPEED void put(GHash& hash, uint32_t slot, HashEntry* entry, uint32_t cell) {
  hash.slots[slot] = entry;
  if (hash.has_index) hash.index().add(entry->hashed, slot, cell);
}

// --- Entries that are leaving: their destroy function has been called but not returned,
// and they are still in their slots. If it removes its entry itself, it is not called
// again; the outer call frees the entry.

constexpr uint32_t leaving_words(uint32_t slots) {
  return slots / 32 + (slots % 32 != 0);
}

// One bit for each slot, after the slots and the index.
uint32_t& leaving_word(const GHash& hash, uint32_t slot) {
  const uint64_t index_words = hash.has_index ? SlotIndex::words(hash.size) : 0;
  auto* const after_slots = reinterpret_cast<uint32_t*>(hash.slots + hash.size);
  return after_slots[static_cast<size_t>(index_words) + slot / 32];
}
constexpr uint32_t leaving_bit(uint32_t slot) {
  return uint32_t{1} << slot % 32;
}
bool is_leaving(const GHash& hash, uint32_t slot) {
  return (leaving_word(hash, slot) & leaving_bit(slot)) != 0;
}
void set_leaving(GHash& hash, uint32_t slot, bool leaves) {
  uint32_t& word = leaving_word(hash, slot);
  word = leaves ? word | leaving_bit(slot) : word & ~leaving_bit(slot);
}

// The current slot of an entry that was at `slot` when the table had `size` slots; the
// number of slots if it has been removed.
uint32_t current_slot(const GHash& hash, const HashEntry* entry, uint32_t slot,
                      uint32_t size) {
  if (hash.slots[slot] == entry) return slot;
  if (hash.size == size) return hash.size;  // only growth moves entries
  slot = 0;
  while (slot < hash.size && hash.slots[slot] != entry) ++slot;
  return slot;
}

// Turns `slot` into a hole. `cell` is its cell in the index, if there is one.
IN_LINE_FOR_SPEED void take_out(GHash& hash, uint32_t slot, uint32_t cell) {
  if (hash.has_index) {
    hash.index().remove(hash.slots[slot]->hashed, slot, cell,
                        [&](uint32_t other) { return hash.slots[other]->hashed; });
  }
  hash.slots[slot] = nullptr;
  --hash.count;
  hash.had_removals = true;
  if (hash.count == 0) {
    hash.had_removals = false;
    hash.has_copies = false;
  }
}

// Takes out the entry at `slot`, after calling its destroy function while it is in place.
// Returns null if the entry must not be freed yet.
HashEntry* destroy_entry(GHash& hash, uint32_t slot) {
  HashEntry* const entry = hash.slots[slot];
  const bool was_leaving = is_leaving(hash, slot);
  if (!was_leaving) {
    set_leaving(hash, slot, true);
    const uint32_t size = hash.size;
    hash.destroy_func(entry->key, entry->value);
    slot = current_slot(hash, entry, slot, size);
    if (slot == hash.size) return entry;
  }
  set_leaving(hash, slot, false);
  take_out(hash, slot, SlotIndex::kSearch);
  return was_leaving ? nullptr : entry;
}

// `cell` is the cell of the entry in the index, or kSearch.
IN_LINE_FOR_SPEED void remove_entry(GHash& hash, uint32_t slot, uint32_t cell) {
  HashEntry* entry = hash.slots[slot];
  if (hash.destroy_func == nullptr) {
    take_out(hash, slot, cell);
  } else {
    entry = destroy_entry(hash, slot);
  }
  if (entry != nullptr) hash.entries.give_back(entry);
}

// Removes all entries, in the order of their slots. Entries that a destroy function inserts
// before its own slot, or that growth moves there, come after all others.
void empty(GHash& hash) {
  if (hash.destroy_func == nullptr) return;  // nobody will see the slots again
  while (hash.count != 0) {
    for (uint32_t slot = 0; slot < hash.size; ++slot) {
      if (hash.slots[slot] != nullptr) remove_entry(hash, slot, SlotIndex::kSearch);
    }
  }
}

// --- Memory.

struct Room {
  HashEntry** slots;  // null when memory is exhausted
  bool has_index;
};

// Allocates `size` empty slots, with bits for leaving entries and, if the table should have
// one and memory permits, an index.
Room allocate_room(HashKeys keys, uint32_t size) {
  const uint64_t bytes =
      uint64_t{size} * sizeof(HashEntry*) + leaving_words(size) * sizeof(uint32_t);
  const auto allocate = [&](uint64_t words) {
    const uint64_t all = bytes + words * sizeof(uint32_t);
    return static_cast<HashEntry**>(
        all <= PTRDIFF_MAX ? std::calloc(1, static_cast<size_t>(all)) : nullptr);
  };
  if (keys != HashKeys::kCallers && size <= SlotIndex::kMaxSlots) {
    if (HashEntry** const slots = allocate(SlotIndex::words(size)); slots != nullptr) {
      return {slots, true};
    }
  }
  return {allocate(0), false};
}

void move_in(GHash& hash, const Room& room, uint32_t size) {
  hash.slots = room.slots;
  hash.size = size;
  hash.has_index = room.has_index;
  if (room.has_index) hash.index().set_up();
}

// Stores the hash of each entry. The caller's hash function may change the table; false if
// it made the table grow. Entries inserted by it have their hash already, and the key of a
// leaving entry may be gone.
bool rehash(GHash& hash) {
  const uint32_t size = hash.size;
  for (uint32_t slot = 0; slot < size; ++slot) {
    const HashEntry* const entry = hash.slots[slot];
    if (entry == nullptr || is_leaving(hash, slot)) continue;
    void* const key = entry->key;
    const uint32_t hashed = hash.hash_func(key);
    if (hash.size != size) return false;
    HashEntry* const there = hash.slots[slot];
    if (there != nullptr && there->key == key) there->hashed = hashed;
  }
  return true;
}

// Doubles the table and reserves an entry; false, with nothing changed, when memory is
// exhausted.
[[gnu::noinline]] bool grow(GHash& hash) {
  if (hash.size > UINT32_MAX / 2) return false;
  const Room room = allocate_room(hash.keys, hash.size * 2);
  if (room.slots == nullptr) return false;
  if (!hash.has_index && !rehash(hash)) {
    std::free(room.slots);
    return true;  // an insertion in the caller's hash function has grown the table
  }
  if (!hash.entries.prepare(hash.size)) {
    std::free(room.slots);
    return false;
  }
  GHash grown = hash;
  move_in(grown, room, hash.size * 2);
  // Probe runs have no holes now, and of several copies of a key the nearest is again the
  // first in the index.
  grown.had_removals = false;
  grown.has_copies = false;
  const bool may_be_leaving = hash.destroy_func != nullptr;
  for (uint32_t slot = 0; slot < hash.size; ++slot) {
    // The entries are scattered in memory: prefetch those that come soon.
    if (hash.size - slot > 8) __builtin_prefetch(hash.slots[slot + 8]);
    HashEntry* const entry = hash.slots[slot];
    if (entry == nullptr) continue;
    const uint32_t place = first_hole(grown, home_slot(grown, entry->hashed));
    put(grown, place, entry, SlotIndex::kSearch);
    if (may_be_leaving && is_leaving(hash, slot)) [[unlikely]]
      set_leaving(grown, place, true);
  }
  std::free(hash.slots);
  hash = grown;
  return true;
}

// Returns whether a new entry may be inserted. While the table is being freed, only as many
// as it had: a destroy function that always inserts must not keep the table alive.
bool admits(GHash& hash) {
  if (!hash.is_being_freed) [[likely]]
    return true;
  if (hash.insertions_left == 0) return false;
  --hash.insertions_left;
  return true;
}

// Out of line: logging needs the address of the library's data, which its callers would
// otherwise compute first.
[[gnu::noinline, gnu::cold]] void report_null(const GHash* hash) {
  CHECK_ARG(hash != NULL);
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
  if (size == 0) size = 1;
  const Room room = allocate_room(hash->keys, size);
  if (room.slots == nullptr) [[unlikely]] {
    std::free(hash);
    return nullptr;
  }
  move_in(*hash, room, size);
  return hash;
}

extern "C" void g_hash_free(GHash* hash) {
  CHECK_ARG(hash != NULL);
  const bool is_outermost = !hash->is_being_freed;
  if (is_outermost) {
    hash->is_being_freed = true;
    hash->insertions_left = hash->count;
  }
  empty(*hash);
  if (!is_outermost)
    return;  // called from a destroy function: the outer call frees the rest
  hash->entries.free_all();
  std::free(hash->slots);
  std::free(hash);
}

extern "C" int g_hash_insert(GHash* hash, void* key, void* value) {
  if (hash == nullptr) [[unlikely]]
    return report_null(hash), -1;
  const uint32_t hashed = hash_of(*hash, key);
  auto [slot, cell] = insertion_slot(*hash, key, hashed);
  if (HashEntry* const entry = hash->slots[slot]; entry != nullptr) {
    *entry = {key, value, hashed};
    return 0;
  }
  if (!admits(*hash)) [[unlikely]]
    return -1;
  while (hash->count == hash->size - 1) {
    if (!grow(*hash)) [[unlikely]]
      return -1;
    slot = first_hole(*hash, home_slot(*hash, hashed));
    cell = SlotIndex::kSearch;
  }
  if (!hash->entries.prepare(hash->size - 1 - hash->count)) [[unlikely]]
    return -1;
  HashEntry* const entry = hash->entries.take();
  *entry = {key, value, hashed};
  put(*hash, slot, entry, cell);
  ++hash->count;
  return 0;
}

extern "C" void* g_hash_find(GHash* hash, const void* key) {
  if (hash == nullptr) [[unlikely]]
    return report_null(hash), nullptr;
  const bool is_text = kForSpeed && hash->keys == HashKeys::kStrings && hash->has_index;
  const uint32_t slot =
      is_text ? find_text_slot(*hash, key, hash_of_text(key)) : find_slot(*hash, key).slot;
  return slot != hash->size ? hash->slots[slot]->value : nullptr;
}

extern "C" int g_hash_remove(GHash* hash, const void* key) {
  if (hash == nullptr) [[unlikely]]
    return report_null(hash), -1;
  const auto [slot, cell] = find_slot(*hash, key);
  if (slot == hash->size) return -1;
  remove_entry(*hash, slot, cell);  // `key` may be gone afterwards
  return 0;
}

extern "C" unsigned g_hash_count(GHash* hash) {
  CHECK_ARG(hash != NULL, 0);
  return hash->count;
}

extern "C" uint32_t g_hash_direct(const void* key) {
  return hash_of_pointer(key);
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
  return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b)) == 0 ? 1 : 0;
}
