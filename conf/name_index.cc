// The table: open addressing with linear probing. Removal moves later records of the probe
// run back, so that there are no tombstones and misses stay short.
//
// SPDX-License-Identifier: MIT

#include "conf/name_index.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

#include "conf/name_compare.h"
#include "conf/name_hash.h"
#include "conf/record.h"
#include "core/built_for.h"

using namespace groundwork;

namespace {

// Returns whether a record has this name, in any case.
bool has_name(const void* record, size_t texts, const char* name, size_t length) {
  if (!is_own(record, texts)) return same_name(name_of(record), {name, length});
  return same_name(own_name_of(record), {name, length});
}

// Returns false if a record has another name for certain: most differ in length or at the
// end.
inline bool may_have_name(const void* record, size_t texts, const char* name,
                          size_t length) {
  if (!is_own(record, texts)) return true;
  if (own_name_of(record).size() != length) return false;
  if (length < 4) return true;
  const size_t last = length - 4;
  return ((load_word(name_of(record) + last) ^ load_word(name + last)) & ~kCaseBits) == 0;
}

// Returns whether a record of the library's own has this name in the same case. A program
// looks up most names as they are written in the file.
inline bool has_spelling(const void* record, size_t texts, const char* name,
                         size_t length) {
  return is_own(record, texts) && own_name_of(record).size() == length &&
         same_spelling(name_of(record), name, length);
}

[[gnu::noinline]] void* walk(const GList* list, size_t texts, const char* name,
                             size_t length) {
  for (; list != nullptr; list = list->next) {
    if (has_name(list->data, texts, name, length)) return list->data;
  }
  return nullptr;
}

// How many occupied slots an insertion may probe on average before the names are suspected
// of colliding on purpose. In a table that is as full as it gets, random names take 1.5.
constexpr int32_t kFreeSteps = 2;

// Chance may take this many more, and removals earn at most this many.
constexpr int32_t kCredit = 64;

// No random name probes this many occupied slots.
constexpr uint32_t kMostSteps = 128;

// Returns whether a table of this capacity has to grow.
bool is_full(uint32_t count, uint32_t capacity) {
  return count > capacity / 2;
}

}  // namespace

inline uint32_t NameIndex::hash_of(std::string_view name) const {
  if (is_keyed_) [[unlikely]]
    return keyed_hash(name.data(), name.size(), seed_);
  return hash_name(name, seed_);
}

// What most reads spend their time in. Both call nothing, except to return its result, and
// so save no registers, which would take as long as the search.

void* NameIndex::find_in_table(const char* name, size_t length) const {
  if (!kForSpeed || is_keyed_) [[unlikely]]
    return probe(name, length);
  const uint32_t hash = hash_name({name, length}, seed_);
  for (uint32_t at = home_of(hash); slots_[at].record != nullptr; at = (at + 1) & mask_) {
    if (slots_[at].hash != hash) continue;
    void* const record = slots_[at].record;
    return has_spelling(record, texts_, name, length) ? record : probe(name, length);
  }
  return is_current(head_) ? nullptr : find_in_list(this, head_, name, length);
}

void* NameIndex::find_in_list(const NameIndex* index, const GList* list, const char* name,
                              size_t length) {
  // An offset of 0 fits no record: all are treated as a program's own.
  const size_t texts = index != nullptr ? index->texts_ : 0;
  if (!kForSpeed) return walk(list, texts, name, length);
  for (; list != nullptr; list = list->next) {
    void* const record = list->data;
    if (!may_have_name(record, texts, name, length)) continue;
    return has_spelling(record, texts, name, length) ? record
                                                     : walk(list, texts, name, length);
  }
  return nullptr;
}

[[gnu::noinline]] void* NameIndex::probe(const char* name, size_t length) const {
  const uint32_t hash = hash_of({name, length});
  for (uint32_t at = home_of(hash); slots_[at].record != nullptr; at = (at + 1) & mask_) {
    void* const record = slots_[at].record;
    // Different names may have the same hash.
    if (slots_[at].hash == hash && has_name(record, texts_, name, length)) return record;
  }
  return is_current(head_) ? nullptr : find_in_list(this, head_, name, length);
}

// Returns the next empty slot after an occupied one.
[[gnu::noinline]] uint32_t NameIndex::next_empty(uint32_t at) {
  uint32_t steps = 0;
  for (; slots_[at].record != nullptr; at = (at + 1) & mask_) ++steps;
  if (steps > kMostSteps) {
    probes_ = INT32_MAX / 2;
  } else {
    probes_ += static_cast<int32_t>(steps);
  }
  return at;
}

inline void NameIndex::insert(uint32_t hash, void* record) {
  uint32_t at = home_of(hash);
  if (slots_[at].record != nullptr) at = next_empty(at);
  slots_[at] = {hash, record};
}

// Returns whether the names collide more than random names do. The slower hash is trusted.
inline bool NameIndex::is_crowded() const {
  const auto free_steps = static_cast<int32_t>(count_) * kFreeSteps;
  return probes_ - kCredit > free_steps && !is_keyed_;
}

bool NameIndex::is_current(const GList* list) const {
  return has_table_of(list) && tail_->next == nullptr;
}

void NameIndex::update(GList* list) {
  if (!is_current(list)) rebuild(list);
}

void NameIndex::rebuild(GList* list) {
  clear();
  for (GList* node = list; node != nullptr; node = node->next) {
    tail_ = node;
    ++count_;
  }
  if (count_ > kWalked) build(list);
}

void NameIndex::append(GList*& list, GList* node) {
  node->prev = tail_;
  (tail_ != nullptr ? tail_->next : list) = node;
  tail_ = node;
  link_of(node->data).node = node;
  ++count_;
  if (slots_ == nullptr) {
    if (count_ > kWalked) build(list);
    return;
  }
  if (is_full(count_, mask_ + 1) && !resize((mask_ + 1) * 2)) {
    drop();
    return;
  }
  insert(hash_of(own_name_of(node->data)), node->data);
  if (is_crowded()) [[unlikely]] {
    is_keyed_ = true;
    build(list);
  }
}

void NameIndex::remove(GList*& list, void* record) {
  // If a program has exchanged the nodes' data, no link can be trusted; if it has renamed
  // the record, the hash in the table is unknown.
  if (slots_ != nullptr &&
      (!is_own(record, texts_) || link_of(record).node->data != record)) {
    rebuild(list);
  }
  GList* node;
  if (slots_ != nullptr) {
    erase(hash_of(own_name_of(record)), record);
    node = link_of(record).node;
  } else {
    node = g_list_find(list, record);
  }
  if (node == tail_) tail_ = node->prev;
  --count_;
  probes_ = std::max(probes_ - kFreeSteps, -kCredit);
  list = g_list_delete_link(list, node);
  head_ = list;
  if (list == nullptr) clear();
}

void NameIndex::clear() {
  drop();
  head_ = nullptr;
  tail_ = nullptr;
  count_ = 0;
  is_keyed_ = false;
}

// Frees the table; from now on the list is walked.
void NameIndex::drop() {
  std::free(std::exchange(slots_, nullptr));
}

// Builds the table of a list; `count_` is the number of its records.
void NameIndex::build(GList* list) {
  drop();
  seed_ = process_seed();
  uint32_t capacity = 2 * kWalked;
  while (is_full(count_, capacity)) capacity *= 2;
  if (!resize(capacity)) return;
  head_ = list;
  if (!fill(list)) drop();
}

// Inserts all records into the empty table. False if one is a program's own, which cannot
// store its node.
bool NameIndex::fill(GList* list) {
  for (GList* node = list; node != nullptr; node = node->next) {
    if (!is_own(node->data, texts_)) return false;
    link_of(node->data).node = node;
    insert(hash_of(own_name_of(node->data)), node->data);
    if (is_crowded()) [[unlikely]] {
      is_keyed_ = true;
      std::fill_n(slots_, mask_ + 1, Slot{});
      probes_ = 0;
      return fill(list);
    }
  }
  return true;
}

// Moves the records to a table of another capacity. False when memory is exhausted.
bool NameIndex::resize(uint32_t capacity) {
  auto* const fresh = static_cast<Slot*>(std::calloc(capacity, sizeof(Slot)));
  if (fresh == nullptr) return false;
  Slot* const old = std::exchange(slots_, fresh);
  const uint32_t old_capacity = old != nullptr ? mask_ + 1 : 0;
  mask_ = capacity - 1;
  shift_ = static_cast<uint8_t>(std::countl_zero(mask_));
  probes_ = 0;
  for (uint32_t at = 0; at < old_capacity; ++at) {
    if (old[at].record != nullptr) insert(old[at].hash, old[at].record);
  }
  std::free(old);
  return true;
}

void NameIndex::erase(uint32_t hash, const void* record) {
  uint32_t hole = home_of(hash);
  while (slots_[hole].record != record) {
    if (slots_[hole].record == nullptr) return;
    hole = (hole + 1) & mask_;
  }
  for (uint32_t at = (hole + 1) & mask_; slots_[at].record != nullptr;
       at = (at + 1) & mask_) {
    // A record must not move before its home slot: the hole must be between that and the
    // record.
    const uint32_t way = (at - home_of(slots_[at].hash)) & mask_;
    if (way >= ((at - hole) & mask_)) slots_[std::exchange(hole, at)] = slots_[at];
  }
  slots_[hole].record = nullptr;
}
