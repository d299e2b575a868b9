// Hash table: open addressing with linear probing in one flat array of pointers to entries.
// Removal leaves holes that searches pass over and insertions fill.
//
// SPDX-License-Identifier: MIT

#include <groundwork/hash.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/check.h"

namespace {

struct Entry {
  void* key;
  void* value;
};

}  // namespace

struct GHash {
  Entry** slots;  // null where empty; one of them always is
  uint32_t size;
  uint32_t count;
  GHashFunc hash_func;
  GEqualFunc equal_func;  // null compares pointers
  GHashDestroyFunc destroy_func;
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

uint32_t next_slot(const GHash& hash, uint32_t slot) {
  return slot + 1 == hash.size ? 0 : slot + 1;
}

bool matches(const GHash& hash, const Entry& entry, const void* key) {
  return hash.equal_func != nullptr ? hash.equal_func(entry.key, key) != 0
                                    : entry.key == key;
}

// The slot of the first entry for `key` from its home slot on; `size` when there is none.
// Holes are passed over: removal leaves them in the middle of a probe run.
uint32_t find_slot(const GHash& hash, const void* key) {
  const uint32_t home = hash.hash_func(key) % hash.size;
  uint32_t slot = home;
  do {
    const Entry* const entry = hash.slots[slot];
    if (entry != nullptr && matches(hash, *entry, key)) return slot;
    slot = next_slot(hash, slot);
  } while (slot != home);
  return hash.size;
}

uint32_t first_hole(const GHash& hash, uint32_t slot) {
  while (hash.slots[slot] != nullptr) slot = next_slot(hash, slot);
  return slot;
}

// Doubles the table; false when memory is exhausted, with nothing changed.
bool grow(GHash& hash) {
  if (hash.size > UINT32_MAX / 2) return false;
  GHash grown = hash;
  grown.size = hash.size * 2;
  grown.slots = static_cast<Entry**>(std::calloc(grown.size, sizeof(Entry*)));
  if (grown.slots == nullptr) [[unlikely]]
    return false;
  for (uint32_t slot = 0; slot < hash.size; ++slot) {
    Entry* const entry = hash.slots[slot];
    if (entry == nullptr) continue;
    grown.slots[first_hole(grown, hash.hash_func(entry->key) % grown.size)] = entry;
  }
  std::free(hash.slots);
  hash = grown;
  return true;
}

}  // namespace

extern "C" GHash* g_hash_new(unsigned size, GHashFunc hash_func, GEqualFunc equal_func,
                             GHashDestroyFunc destroy_func) {
  if (size == 0) size = 1;
  auto* const hash = static_cast<GHash*>(std::malloc(sizeof(GHash)));
  if (hash == nullptr) [[unlikely]]
    return nullptr;
  auto** const slots = static_cast<Entry**>(std::calloc(size, sizeof(Entry*)));
  if (slots == nullptr) [[unlikely]] {
    std::free(hash);
    return nullptr;
  }
  *hash = {slots,      size,        0, hash_func != nullptr ? hash_func : g_hash_direct,
           equal_func, destroy_func};
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
  const uint32_t hashed = hash->hash_func(key);
  // Kept: ends at the first hole, although a search would go on. A key beyond the hole is
  // stored twice.
  uint32_t slot = hashed % hash->size;
  for (; hash->slots[slot] != nullptr; slot = next_slot(*hash, slot)) {
    Entry* const entry = hash->slots[slot];
    if (matches(*hash, *entry, key)) {
      *entry = {key, value};
      return 0;
    }
  }
  auto* const entry = static_cast<Entry*>(std::malloc(sizeof(Entry)));
  if (entry == nullptr) [[unlikely]]
    return -1;
  if (hash->count == hash->size - 1) {
    if (!grow(*hash)) [[unlikely]] {
      std::free(entry);
      return -1;
    }
    slot = first_hole(*hash, hashed % hash->size);
  }
  *entry = {key, value};
  hash->slots[slot] = entry;
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
  std::free(entry);
  hash->slots[slot] = nullptr;
  --hash->count;
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
  return *static_cast<const uint32_t*>(key);
}

extern "C" int g_hash_int_equal(const void* a, const void* b) {
  return g_hash_int(a) == g_hash_int(b) ? 1 : 0;
}

extern "C" uint32_t g_hash_str(const void* key) {
  uint32_t hashed = 0;
  // Kept: bytes are signed everywhere, so non-ASCII text hashes alike on every platform.
  for (const auto* byte = static_cast<const signed char*>(key); *byte != 0; ++byte) {
    hashed = hashed * 31 + static_cast<uint32_t>(*byte);
  }
  return hashed;
}

extern "C" int g_hash_str_equal(const void* a, const void* b) {
  return std::strcmp(static_cast<const char*>(a), static_cast<const char*>(b)) == 0 ? 1 : 0;
}
