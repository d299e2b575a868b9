// The entries of a hash table. They are allocated many at a time and reused, so that a
// table rarely calls malloc(). When the last entry is returned, the memory is freed, except
// for the single slab of a small table.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_ENTRY_POOL_H
#define GROUNDWORK_CONTAINERS_ENTRY_POOL_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace groundwork {

struct HashEntry {
  void* key;
  void* value;
  uint32_t hashed;  // of the key
};

// Zero-initialised, it is an empty pool. It has no destructor: call free_all().
class EntryPool {
 public:
  // Makes sure that take() has an entry; false when memory is exhausted. The caller needs
  // `at_most` entries, at least 1, before its table grows.
  bool prepare(uint32_t at_most) { return free_ != nullptr || add_slab(at_most); }

  // Call prepare() first.
  HashEntry* take() {
    ++taken_;
    return std::exchange(free_, next_of(free_));
  }

  void give_back(HashEntry* entry) {
    entry->key = free_;
    free_ = entry;
    if (--taken_ == 0 && slabs_->next != nullptr) free_all();
  }

  void free_all() {
    free_ = nullptr;
    while (slabs_ != nullptr) std::free(std::exchange(slabs_, slabs_->next));
  }

 private:
  struct Slab {
    Slab* next;
  };

  static HashEntry* next_of(const HashEntry* entry) {
    return static_cast<HashEntry*>(entry->key);
  }

  // Adds as many entries as are in use, within limits: this wastes few, and asks for block
  // sizes that the heap has ready.
  [[gnu::noinline]] bool add_slab(uint32_t at_most) {
    constexpr uint32_t kFewest = 8;
    constexpr uint32_t kMost = 64;
    const uint32_t count = std::min(std::clamp(taken_, kFewest, kMost), at_most);
    auto* const slab =
        static_cast<Slab*>(std::malloc(sizeof(Slab) + count * sizeof(HashEntry)));
    if (slab == nullptr) [[unlikely]]
      return false;
    slab->next = slabs_;
    slabs_ = slab;
    auto* const entries = reinterpret_cast<HashEntry*>(slab + 1);
    for (uint32_t i = count; i-- != 0;) {
      entries[i].key = free_;
      free_ = &entries[i];
    }
    return true;
  }

  HashEntry* free_;  // linked through `key`
  Slab* slabs_;      // newest first
  uint32_t taken_;
};

}  // namespace groundwork

#endif
