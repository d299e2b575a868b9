// Answers the two questions of an open-addressing table that would otherwise be walked for:
// which slots may hold a hash, and where is the first hole from a slot on.
//
// Hashes: cells in a second, smaller open-addressing table. A cell is one word: the slot
// plus one in its low bits, some bits of the mixed hash, the tag, in the rest; 0 is empty.
// In a small table a cell is one byte, without a tag: what it leads to is in the cache
// anyway. Holes: one bit for each slot, set where occupied, and a summary bit for each word
// of those, set where the word is full.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_SLOT_INDEX_H
#define GROUNDWORK_CONTAINERS_SLOT_INDEX_H

#include <bit>
#include <cstddef>
#include <cstdint>

namespace groundwork {

class SlotIndex {
 public:
  static constexpr uint32_t kMaxSlots = UINT32_MAX >> 2;  // leaves a bit for the tag

  // How many words the index of a table of `slots` slots takes.
  static constexpr uint64_t words(uint32_t slots) {
    return uint64_t{cell_words(slots)} + bit_words(slots) + bit_words(bit_words(slots));
  }

  SlotIndex() = default;  // no index: tests false

  // `memory` holds words(slots) zeros; all slots are empty. Not owned.
  SlotIndex(uint32_t* memory, uint32_t slots)
      : cells_(memory),
        cell_count_(cells(slots)),
        slots_(slots),
        tag_factor_(uint32_t{1} << std::bit_width(slots)),
        occupied_(cells_ + cell_words(slots)),
        full_(occupied_ + bit_words(slots)) {
    // What lies beyond the end is no hole.
    fill_from(occupied_, slots);
    fill_from(full_, bit_words(slots));
  }

  explicit operator bool() const { return cells_ != nullptr; }

  // The first occupied slot, in no order, whose hash may be `hash` and for which
  // is_match(slot) returns true; the number of slots when there is none. In a large table
  // slots of other hashes are rare among those asked about. Of slots with one hash that
  // which was added first is asked about first.
  template <typename IsMatch>
  uint32_t find_candidate(uint32_t hash, IsMatch is_match) const {
    return is_small(slots_) ? find<Byte>(hash, is_match) : find<Word>(hash, is_match);
  }

  // The first empty slot from `slot` on, the last slot being followed by the first. One
  // must be empty.
  uint32_t first_hole(uint32_t slot) const {
    uint32_t word = slot / 32;
    uint32_t holes = ~occupied_[word] & (~uint32_t{0} << slot % 32);
    if (holes == 0) {
      word = word_with_hole_after(word);
      holes = ~occupied_[word];
    }
    return word * 32 + static_cast<uint32_t>(std::countr_zero(holes));
  }

  // `slot`, empty so far, is taken by an entry of `hash`.
  void add(uint32_t hash, uint32_t slot) {
    if (is_small(slots_)) {
      add_cell<Byte>(hash, slot);
    } else {
      add_cell<Word>(hash, slot);
    }
    const uint32_t word = slot / 32;
    occupied_[word] |= bit(slot);
    if (occupied_[word] == ~uint32_t{0}) full_[word / 32] |= bit(word);
  }

  // `slot` loses its entry of `hash`. hash_at(slot) tells the hash of any other occupied
  // slot.
  template <typename HashAt>
  void remove(uint32_t hash, uint32_t slot, HashAt hash_at) {
    occupied_[slot / 32] &= ~bit(slot);
    full_[slot / 32 / 32] &= ~bit(slot / 32);
    if (is_small(slots_)) {
      remove_cell<Byte>(hash, slot, hash_at);
    } else {
      remove_cell<Word>(hash, slot, hash_at);
    }
  }

 private:
  // The two kinds of cells.
  struct Byte {
    using Cell = uint8_t;
    static constexpr uint32_t tag(uint32_t, uint32_t) { return 0; }
    static constexpr uint32_t slot_mask(uint32_t) { return UINT8_MAX; }
  };
  struct Word {
    using Cell = uint32_t;
    static constexpr uint32_t tag(uint32_t mixed, uint32_t factor) {
      return mixed * factor;
    }
    static constexpr uint32_t slot_mask(uint32_t factor) { return factor - 1; }
  };
  static constexpr bool is_small(uint32_t slots) { return slots <= 128; }

  // Since one slot stays empty, less than half of the bytes, or four of seven words, are
  // taken.
  static constexpr uint32_t cells(uint32_t slots) {
    return is_small(slots) ? slots * 2 : slots + slots / 2 + slots / 4;
  }
  static constexpr uint32_t cell_words(uint32_t slots) {
    return is_small(slots) ? (cells(slots) + 3) / 4 : cells(slots);
  }
  static constexpr uint32_t bit_words(uint32_t bits) {
    return bits / 32 + (bits % 32 != 0);
  }
  static constexpr uint32_t bit(uint32_t index) { return uint32_t{1} << index % 32; }

  static void fill_from(uint32_t* words, uint32_t bits) {
    if (bits % 32 != 0) words[bits / 32] = ~uint32_t{0} << bits % 32;
  }

  // One-to-one; its upper bits choose the cell, its lower bits are the tag.
  static constexpr uint32_t mix(uint32_t hash) { return (hash ^ hash >> 16) * 0x9e3779b1u; }
  uint32_t home_cell(uint32_t mixed) const {
    return static_cast<uint32_t>(uint64_t{mixed} * cell_count_ >> 32);
  }
  uint32_t next_cell(uint32_t at) const { return at + 1 == cell_count_ ? 0 : at + 1; }

  template <typename Kind>
  typename Kind::Cell* cells_of() const {
    return reinterpret_cast<typename Kind::Cell*>(cells_);
  }

  template <typename Kind, typename IsMatch>
  uint32_t find(uint32_t hash, IsMatch is_match) const {
    const auto* const cells = cells_of<Kind>();
    const uint32_t mixed = mix(hash);
    const uint32_t tag = Kind::tag(mixed, tag_factor_);
    for (uint32_t at = home_cell(mixed);; at = next_cell(at)) {
      const uint32_t cell = cells[at];
      if (cell == 0) return slots_;
      const uint32_t slot = (cell ^ tag) - 1;
      if (slot < slots_ && is_match(slot)) return slot;
    }
  }

  template <typename Kind>
  void add_cell(uint32_t hash, uint32_t slot) {
    auto* const cells = cells_of<Kind>();
    const uint32_t mixed = mix(hash);
    uint32_t at = home_cell(mixed);
    while (cells[at] != 0) at = next_cell(at);
    cells[at] =
        static_cast<typename Kind::Cell>(Kind::tag(mixed, tag_factor_) | (slot + 1));
  }

  template <typename Kind, typename HashAt>
  void remove_cell(uint32_t hash, uint32_t slot, HashAt hash_at) {
    auto* const cells = cells_of<Kind>();
    const uint32_t mask = Kind::slot_mask(tag_factor_);
    uint32_t gap = home_cell(mix(hash));
    while ((cells[gap] & mask) != slot + 1) gap = next_cell(gap);
    // Cells after the gap move into it unless that would put them before their home.
    uint32_t from_gap = 0;
    for (uint32_t at = next_cell(gap); cells[at] != 0; at = next_cell(at)) {
      ++from_gap;
      const uint32_t home = home_cell(mix(hash_at((cells[at] & mask) - 1)));
      const uint32_t from_home = at >= home ? at - home : at - home + cell_count_;
      if (from_home < from_gap) continue;
      cells[gap] = cells[at];
      gap = at;
      from_gap = 0;
    }
    cells[gap] = 0;
  }

  uint32_t word_with_hole_after(uint32_t word) const {
    const uint32_t end = bit_words(bit_words(slots_));
    uint32_t at = word / 32;
    // The word itself is no answer yet: its holes, if any, lie before the slot asked for.
    uint32_t open = ~full_[at] & (~uint32_t{1} << word % 32);
    while (open == 0) {
      at = at + 1 == end ? 0 : at + 1;
      open = ~full_[at];
    }
    return at * 32 + static_cast<uint32_t>(std::countr_zero(open));
  }

  uint32_t* cells_ = nullptr;  // words, or four bytes in each
  uint32_t cell_count_ = 0;
  uint32_t slots_ = 0;
  uint32_t tag_factor_ = 0;  // leaves the low bits for the slot
  uint32_t* occupied_ = nullptr;
  uint32_t* full_ = nullptr;
};

}  // namespace groundwork

#endif
