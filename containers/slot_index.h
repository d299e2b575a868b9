// An index of an open-addressing table, which would otherwise have to be walked. It finds
// the slots that may hold a hash, and the first hole from a slot on.
//
// Hashes: cells in a second, smaller open-addressing table. A cell is one word: the slot
// plus one in its low bits and a tag, some bits of the mixed hash, in the rest; 0 is empty.
// In a small table a cell is one byte, without a tag: the entries are in the cache anyway.
// Holes: one bit for each slot, set if occupied, and a summary bit for each word of these,
// set if the word is full.
//
// An index comes after its table's slots, so the table needs no pointer to it: this class
// is a view of that memory. A large index begins with two numbers that every call needs.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONTAINERS_SLOT_INDEX_H
#define GROUNDWORK_CONTAINERS_SLOT_INDEX_H

#include <bit>
#include <cstddef>
#include <cstdint>

#include "core/built_for.h"

namespace groundwork {

class SlotIndex {
 public:
  // Where a look-up ended: the slot, and the cell that refers to it, or would.
  struct Match {
    uint32_t slot;
    uint32_t cell;
  };
  static constexpr uint32_t kSearch = UINT32_MAX;  // the cell is not known

  static constexpr uint32_t kMaxSlots = UINT32_MAX >> 2;  // leaves a bit for the tag

  // The number of words in the index of a table with `slots` slots.
  static constexpr uint64_t words(uint32_t slots) {
    return uint64_t{cell_words(slots)} + bit_words(slots) + bit_words(bit_words(slots)) +
           (is_small(slots) ? 0 : kFigures);
  }

  // `memory` holds words(slots) words. Not owned.
  SlotIndex(uint32_t* memory, uint32_t slots) : memory_(memory), slots_(slots) {}

  // Initialises the index of a table without entries; its memory must be zero.
  void set_up() const {
    if (!is_small(slots_)) {
      memory_[0] = cells(slots_);
      memory_[1] = uint32_t{1} << std::bit_width(slots_);
    }
    // The bits past the end are not holes.
    fill_from(occupied(), slots_);
    fill_from(full(), bit_words(slots_));
  }

  // Returns a slot whose hash may be `hash` and for which is_match(slot) is true; the
  // number of slots if there is none. In a large table is_match() is rarely called for
  // slots with another hash. Slots with the same hash are tried in the order in which they
  // were added.
  template <typename IsMatch>
  IN_LINE_FOR_SPEED Match find_candidate(uint32_t hash, IsMatch is_match) const {
    return with_cells([&](auto cells) { return find(cells, hash, is_match); });
  }

  // Returns the first empty slot from `slot` on, wrapping around at the end. There must be
  // one.
  IN_LINE_FOR_SPEED uint32_t first_hole(uint32_t slot) const {
    const uint32_t* const taken = occupied();
    uint32_t word = slot / 32;
    uint32_t holes = ~taken[word] & (~uint32_t{0} << slot % 32);
    if (holes == 0) {
      word = word_with_hole_after(word);
      holes = ~taken[word];
    }
    return word * 32 + static_cast<uint32_t>(std::countr_zero(holes));
  }

  // Records that `slot`, empty so far, holds an entry with `hash`. `cell` is where the
  // look-up missed, if nothing has changed since; otherwise kSearch.
  IN_LINE_FOR_SPEED void add(uint32_t hash, uint32_t slot, uint32_t cell) const {
    with_cells([&](auto cells) { add_cell(cells, hash, slot, cell); });
    const uint32_t word = slot / 32;
    uint32_t& taken = occupied()[word];
    taken |= bit(slot);
    if (taken == ~uint32_t{0}) full()[word / 32] |= bit(word);
  }

  // Records that `slot` no longer holds its entry with `hash`. `cell` is where the look-up
  // ended, if nothing has changed since; otherwise kSearch. hash_at(slot) returns the hash
  // of any other occupied slot.
  template <typename HashAt>
  IN_LINE_FOR_SPEED void remove(uint32_t hash, uint32_t slot, uint32_t cell,
                                HashAt hash_at) const {
    occupied()[slot / 32] &= ~bit(slot);
    full()[slot / 32 / 32] &= ~bit(slot / 32);
    with_cells([&](auto cells) { remove_cell(cells, hash, slot, cell, hash_at); });
  }

 private:
  // The two kinds of cells: their number, and access to them.
  struct Bytes {
    uint8_t* cells;
    uint32_t count;

    explicit Bytes(const SlotIndex& index)
        : cells(reinterpret_cast<uint8_t*>(index.memory_)), count(index.slots_ * 2) {}
    uint32_t get(uint32_t at) const { return cells[at]; }
    void set(uint32_t at, uint32_t cell) const { cells[at] = static_cast<uint8_t>(cell); }
    static constexpr uint32_t tag(uint32_t) { return 0; }
    static constexpr uint32_t slot_mask() { return UINT8_MAX; }
  };
  struct Words {
    uint32_t* cells;
    uint32_t count;
    uint32_t factor;  // leaves the low bits for the slot

    explicit Words(const SlotIndex& index)
        : cells(index.memory_ + kFigures),
          count(index.memory_[0]),
          factor(index.memory_[1]) {}
    uint32_t get(uint32_t at) const { return cells[at]; }
    void set(uint32_t at, uint32_t cell) const { cells[at] = cell; }
    uint32_t tag(uint32_t mixed) const { return mixed * factor; }
    uint32_t slot_mask() const { return factor - 1; }
  };
  // Either kind, for code that exists once: the factor is 0 if cells are bytes.
  struct Either {
    uint32_t* memory;
    uint32_t count;
    uint32_t factor;

    explicit Either(const SlotIndex& index)
        : memory(index.memory_), count(index.slots_ * 2), factor(0) {
      if (is_small(index.slots_)) return;
      count = memory[0];
      factor = memory[1];
      memory += kFigures;
    }
    uint32_t get(uint32_t at) const {
      return factor == 0 ? reinterpret_cast<uint8_t*>(memory)[at] : memory[at];
    }
    void set(uint32_t at, uint32_t cell) const {
      if (factor == 0) {
        reinterpret_cast<uint8_t*>(memory)[at] = static_cast<uint8_t>(cell);
      } else {
        memory[at] = cell;
      }
    }
    uint32_t tag(uint32_t mixed) const { return mixed * factor; }
    uint32_t slot_mask() const { return factor - 1; }
  };
  template <typename Work>
  IN_LINE_FOR_SPEED auto with_cells(Work work) const -> decltype(work(Either(*this))) {
    if constexpr (!kForSpeed) return work(Either(*this));
    return is_small(slots_) ? work(Bytes(*this)) : work(Words(*this));
  }
  static constexpr uint32_t kFigures = 2;  // numbers before the cells of a large index
  static constexpr bool is_small(uint32_t slots) { return slots <= 128; }

  // Since one slot stays empty, less than half of the bytes, or four in seven of the words,
  // are occupied.
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

  // A bijection; the upper bits select the cell, the lower bits are the tag.
  static constexpr uint32_t mix(uint32_t hash) { return (hash ^ hash >> 16) * 0x9e3779b1u; }
  static uint32_t home_cell(uint32_t mixed, uint32_t count) {
    return static_cast<uint32_t>(uint64_t{mixed} * count >> 32);
  }
  static uint32_t next_cell(uint32_t at, uint32_t count) {
    return at + 1 == count ? 0 : at + 1;
  }

  uint32_t* occupied() const {
    return memory_ + (is_small(slots_) ? cell_words(slots_) : kFigures + memory_[0]);
  }
  uint32_t* full() const { return occupied() + bit_words(slots_); }

  template <typename Cells, typename IsMatch>
  IN_LINE_FOR_SPEED Match find(Cells cells, uint32_t hash, IsMatch is_match) const {
    const uint32_t mixed = mix(hash);
    const uint32_t tag = cells.tag(mixed);
    for (uint32_t at = home_cell(mixed, cells.count);; at = next_cell(at, cells.count)) {
      const uint32_t cell = cells.get(at);
      if (cell == 0) return {slots_, at};
      const uint32_t slot = (cell ^ tag) - 1;
      if (slot < slots_ && is_match(slot)) return {slot, at};
    }
  }

  template <typename Cells>
  IN_LINE_FOR_SPEED static void add_cell(Cells cells, uint32_t hash, uint32_t slot,
                                         uint32_t at) {
    const uint32_t mixed = mix(hash);
    if (!kForSpeed || at == kSearch) {
      at = home_cell(mixed, cells.count);
      while (cells.get(at) != 0) at = next_cell(at, cells.count);
    }
    cells.set(at, cells.tag(mixed) | (slot + 1));
  }

  template <typename Cells, typename HashAt>
  IN_LINE_FOR_SPEED static void remove_cell(Cells cells, uint32_t hash, uint32_t slot,
                                            uint32_t gap, HashAt hash_at) {
    const auto slot_plus_one = [&](uint32_t at) {
      return cells.get(at) & cells.slot_mask();
    };
    if (!kForSpeed || gap == kSearch) {
      gap = home_cell(mix(hash), cells.count);
      while (slot_plus_one(gap) != slot + 1) gap = next_cell(gap, cells.count);
    }
    // Cells after the gap move into it, unless that would put them before their home cell.
    uint32_t from_gap = 0;
    for (uint32_t at = next_cell(gap, cells.count); cells.get(at) != 0;
         at = next_cell(at, cells.count)) {
      ++from_gap;
      const uint32_t home = home_cell(mix(hash_at(slot_plus_one(at) - 1)), cells.count);
      const uint32_t from_home = at >= home ? at - home : at - home + cells.count;
      if (from_home < from_gap) continue;
      cells.set(gap, cells.get(at));
      gap = at;
      from_gap = 0;
    }
    cells.set(gap, 0);
  }

  uint32_t word_with_hole_after(uint32_t word) const {
    const uint32_t end = bit_words(bit_words(slots_));
    const uint32_t* const words = full();
    uint32_t at = word / 32;
    // Starts after the word itself: its holes, if any, are before the slot in question.
    uint32_t open = ~words[at] & (~uint32_t{1} << word % 32);
    while (open == 0) {
      at = at + 1 == end ? 0 : at + 1;
      open = ~words[at];
    }
    return at * 32 + static_cast<uint32_t>(std::countr_zero(open));
  }

  uint32_t* memory_;  // the cells, one or four in a word, then the bits
  uint32_t slots_;
};

}  // namespace groundwork

#endif
