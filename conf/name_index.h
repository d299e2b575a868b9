// Finds records by name in a public list, in constant time.
//
// The lists of a conf are plain GLists that programs read. For each the library keeps a
// NameIndex in the hidden part of the record that owns the list. For a short list it is
// empty and look-ups walk; for a longer one it is a hash table from names to records.
//
//   hit      one probe of the table and one comparison
//   miss     one probe; valid if the index still knows the list's first and last node
//   append   through the remembered last node, amortised growth of the table
//   removal  through the node stored in the record, unless that now holds another record
//
// The names determine the slots, and a file may contain names that were made to collide. So
// the hash has a seed for each process, which separates all names except those with the
// same hash for every seed; and if insertions probe more slots than random names would, the
// table switches to a slower hash, for which such names cannot be found without the seed.
// Whatever the names, an insertion probes about two occupied slots on average.
//
// Programs may reorder a list and may add their own records at its ends. Such a list has
// another first or last node than the index knows, and is walked until the next change made
// through the library, which rebuilds the index. A reordering that leaves both ends in
// place is not noticed, but is harmless, since the table has the same records. Two things
// that programs must not do are not noticed, either, and look-ups in a table miss them:
// adding records between unchanged ends, and renaming records.
//
// If the table cannot be allocated, look-ups walk the list. Look-ups change nothing, so any
// number of threads may look up simultaneously.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_NAME_INDEX_H
#define GROUNDWORK_CONF_NAME_INDEX_H

#include <groundwork/list.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace groundwork {

class NameIndex {
 public:
  // `texts`: offset of the texts in the blocks of the library's own records in this list.
  explicit constexpr NameIndex(size_t texts) : texts_(static_cast<uint8_t>(texts)) {}

  // Returns the first record with this name, or null. Walks if `index` is null.
  static void* find(const NameIndex* index, const GList* list, std::string_view name) {
    if (index != nullptr && index->has_table_of(list)) {
      return index->find_in_table(name.data(), name.size());
    }
    return find_in_list(index, list, name.data(), name.size());
  }

  // Updates the index to the list. Must be called before append() and remove(), unless no
  // program has seen the list.
  void update(GList* list);

  // Appends a node that holds a record of the library's own, with a name that is not in the
  // list yet.
  void append(GList*& list, GList* node);

  // Unlinks a record and frees its node.
  void remove(GList*& list, void* record);

  // Frees the table. The index is then that of an empty list.
  void clear();

 private:
  struct Slot {
    uint32_t hash;
    void* record;  // null: empty; there is always an empty slot
  };

  // Longer lists have a table; walking a shorter one costs no more than a probe.
  static constexpr uint32_t kWalked = 8;

  bool has_table_of(const GList* list) const { return slots_ != nullptr && head_ == list; }
  bool is_current(const GList* list) const;
  // A name is two arguments in these: as one it would be passed on the stack.
  static void* find_in_list(const NameIndex* index, const GList* list, const char* name,
                            size_t length);
  void* find_in_table(const char* name, size_t length) const;
  void* probe(const char* name, size_t length) const;
  uint32_t hash_of(std::string_view name) const;
  uint32_t home_of(uint32_t hash) const { return hash >> shift_; }
  void rebuild(GList* list);
  void build(GList* list);
  bool fill(GList* list);
  bool resize(uint32_t capacity);
  uint32_t next_empty(uint32_t at);
  void insert(uint32_t hash, void* record);
  bool is_crowded() const;
  void drop();
  void erase(uint32_t hash, const void* record);

  Slot* slots_ = nullptr;  // null: the list is walked
  uint32_t mask_ = 0;      // capacity - 1; the capacity is a power of two
  uint32_t count_ = 0;     // these three describe the list as the library left it
  GList* head_ = nullptr;
  GList* tail_ = nullptr;
  uint32_t seed_ = 0;  // of the hash
  // The number of occupied slots that insertions probed since the table was built, less a
  // credit for removals.
  int32_t probes_ = 0;
  uint8_t shift_ = 0;      // leaves the upper bits of a hash, which are the home slot
  bool is_keyed_ = false;  // the slower hash is in use
  uint8_t texts_;
};

}  // namespace groundwork

#endif
