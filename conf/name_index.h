// Finds records by name in a public list, in a time that does not grow with the list.
//
// The lists of a conf are plain GLists that programs read. Beside each the library keeps a
// NameIndex, hidden behind the record that owns the list: for a short list it is empty and
// look-ups walk; for a longer one it is a table from hashed name to record.
//
//   hit      one probe of the table and one comparison
//   miss     one probe; believed when the list still begins and ends where the index knows
//   append   through the remembered last node, amortised growth of the table
//   removal  through the record's own note of its node, unless the node holds another now
//
// Names decide where records are in the table, and they may come from a file that somebody
// made to collide. So the hash starts from a seed of the process, which keeps all but names
// with one and the same hash apart; and when those crowd together, as random names do not,
// the table changes over to a slower hash for which no such names can be found without the
// seed. Whatever the names, an insertion passes some two records on average.
//
// Programs may reorder a list and may add records of their own at its ends. Such a list
// begins or ends elsewhere than the index knows, and is walked until the next change made
// through the library, which builds the index anew. A reordering that leaves both ends
// where they are goes unnoticed and does no harm: the table has the same records. Not
// noticed either, and missed by look-ups in a list with a table, are what programs must not
// do: a record of their own in the middle between unchanged ends, and a record with another
// name.
//
// If there is no memory for a table, the list is walked. Look-ups change nothing, so that
// any number of threads may look up simultaneously.
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
  // `texts`: where the texts are in the block of the library's own records of this list.
  explicit constexpr NameIndex(size_t texts) : texts_(static_cast<uint8_t>(texts)) {}

  // The first record of that name, or null. Walks when `index` is null.
  static void* find(const NameIndex* index, const GList* list, std::string_view name);

  // To be called before append() and remove(), unless nobody else has seen the list: brings
  // the index in step with it.
  void renew(GList* list);

  // Links a node that holds a record of the library's own, with a name that is not yet in
  // the list, at the end.
  void append(GList*& list, GList* node);

  // Unlinks a record and frees its node.
  void remove(GList*& list, void* record);

  // Gives the table back. The index is then that of an empty list.
  void clear();

 private:
  struct Slot {
    uint32_t hash;
    void* record;  // null in an empty slot, of which there always is one
  };

  // Longer lists get a table; walking a shorter one costs no more than a probe.
  static constexpr uint32_t kWalked = 8;

  bool has_table_of(const GList* list) const { return slots_ != nullptr && head_ == list; }
  bool in_step(const GList* list) const;
  void* probe(std::string_view name) const;
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
  uint32_t count_ = 0;     // of the list that the table describes, as are these two:
  GList* head_ = nullptr;
  GList* tail_ = nullptr;
  uint32_t seed_ = 0;  // of the hash
  // How many records the insertions passed since the table was made, less what removals
  // allow for.
  int32_t passed_ = 0;
  uint8_t shift_ = 0;      // the upper bits of a hash give its home slot
  bool is_keyed_ = false;  // the slower hash is in use
  uint8_t texts_;
};

}  // namespace groundwork

#endif
