// The table: open addressing with linear probing. A removal moves later records of the run
// back, so no markers are left and a miss stays as short as it was.
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

using namespace groundwork;

namespace {

[[gnu::cold, gnu::noinline]] bool programs_own_has_name(const void* record,
                                                        std::string_view name) {
  return same_name(name_of(record), name);
}

inline bool has_name(void* record, size_t texts, std::string_view name) {
  if (!is_own(record, texts)) return programs_own_has_name(record, name);
  return same_name(own_name_of(record), name);
}

inline void* walk(const GList* list, size_t texts, std::string_view name) {
  for (; list != nullptr; list = list->next) {
    if (has_name(list->data, texts, name)) return list->data;
  }
  return nullptr;
}

// How many records each insertion may pass on average without it being held against the
// names. In a table that is as full as it gets, random names pass 1.5.
constexpr int32_t kFreeSteps = 2;

// Chance may use up so many more, and no removals give more room than this.
constexpr int32_t kCredit = 64;

// No random name passes so many records.
constexpr uint32_t kMostSteps = 128;

// Whether a table of that capacity is as full as it may get.
bool is_full(uint32_t count, uint32_t capacity) {
  return count > capacity / 2;
}

}  // namespace

inline uint32_t NameIndex::hash_of(std::string_view name) const {
  if (is_keyed_) [[unlikely]]
    return keyed_hash(name, seed_);
  return hash_name(name, seed_);
}

inline void* NameIndex::probe(std::string_view name) const {
  const uint32_t hash = hash_of(name);
  for (uint32_t at = home_of(hash);; at = (at + 1) & mask_) {
    const Slot& slot = slots_[at];
    if (slot.record == nullptr) return nullptr;
    // The name is compared even so: two names may share a hash.
    if (slot.hash == hash && has_name(slot.record, texts_, name)) return slot.record;
  }
}

// The next empty slot after one that is taken.
[[gnu::noinline]] uint32_t NameIndex::next_empty(uint32_t at) {
  uint32_t steps = 0;
  for (; slots_[at].record != nullptr; at = (at + 1) & mask_) ++steps;
  if (steps > kMostSteps) {
    passed_ = INT32_MAX / 2;
  } else {
    passed_ += static_cast<int32_t>(steps);
  }
  return at;
}

inline void NameIndex::insert(uint32_t hash, void* record) {
  uint32_t at = home_of(hash);
  if (slots_[at].record != nullptr) at = next_empty(at);
  slots_[at] = {hash, record};
}

// Whether the names crowd together as random names do not. The slower hash is trusted.
inline bool NameIndex::is_crowded() const {
  const auto free_steps = static_cast<int32_t>(count_) * kFreeSteps;
  return passed_ - kCredit > free_steps && !is_keyed_;
}

void* NameIndex::find(const NameIndex* index, const GList* list, std::string_view name) {
  // No record is its own name: all are taken for a program's own.
  if (index == nullptr) [[unlikely]]
    return walk(list, 0, name);
  if (index->has_table_of(list)) {
    void* const record = index->probe(name);
    if (record != nullptr || index->in_step(list)) return record;
  }
  return walk(list, index->texts_, name);
}

bool NameIndex::in_step(const GList* list) const {
  return has_table_of(list) && tail_->next == nullptr;
}

void NameIndex::renew(GList* list) {
  if (!in_step(list)) rebuild(list);
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
  // A program may have exchanged what the nodes hold: then no link is to be trusted. Or it
  // renamed the record: then it is not known by which hash the table has it.
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
  passed_ = std::max(passed_ - kFreeSteps, -kCredit);
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

// From now on the list is walked.
void NameIndex::drop() {
  std::free(std::exchange(slots_, nullptr));
}

// Makes the table of a list, whose number of records is known.
void NameIndex::build(GList* list) {
  drop();
  seed_ = process_seed();
  uint32_t capacity = 2 * kWalked;
  while (is_full(count_, capacity)) capacity *= 2;
  if (!resize(capacity)) return;
  head_ = list;
  if (!fill(list)) drop();
}

// Puts all records into the empty table. False when one is a program's own, which has no
// room for its node.
bool NameIndex::fill(GList* list) {
  for (GList* node = list; node != nullptr; node = node->next) {
    if (!is_own(node->data, texts_)) return false;
    link_of(node->data).node = node;
    insert(hash_of(own_name_of(node->data)), node->data);
    if (is_crowded()) [[unlikely]] {
      is_keyed_ = true;
      std::fill_n(slots_, mask_ + 1, Slot{});
      passed_ = 0;
      return fill(list);
    }
  }
  return true;
}

// Moves the table, if there is one, to one of that capacity. False when memory is
// exhausted.
bool NameIndex::resize(uint32_t capacity) {
  auto* const fresh = static_cast<Slot*>(std::calloc(capacity, sizeof(Slot)));
  if (fresh == nullptr) return false;
  Slot* const old = std::exchange(slots_, fresh);
  const uint32_t old_capacity = old != nullptr ? mask_ + 1 : 0;
  mask_ = capacity - 1;
  shift_ = static_cast<uint8_t>(std::countl_zero(mask_));
  passed_ = 0;
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
    // A record may not move before its home slot: the hole must lie on its way from there.
    const uint32_t way = (at - home_of(slots_[at].hash)) & mask_;
    if (way >= ((at - hole) & mask_)) slots_[std::exchange(hole, at)] = slots_[at];
  }
  slots_[hole].record = nullptr;
}
