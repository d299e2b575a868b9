// The sections and keys of a configuration as a table of views: of a conf at one moment, or
// of the text of a file.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_KEYS_H
#define GROUNDWORK_SAFE_CONF_KEYS_H

#include <groundwork/conf.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "conf/line.h"
#include "core/owned.h"
#include "safe/conf_array.h"

namespace groundwork {

// From the hash of a name to the number of what has that name: open addressing, linear
// probing, at most half full. Nothing is ever taken out.
class IdTable {
 public:
  using Id = uint32_t;
  static constexpr Id kNone = UINT32_MAX;

  // The number for which has(number) holds, among those of that hash.
  template <typename Has>
  Id find(uint32_t hash, Has has) const {
    if (slots_ == nullptr) return kNone;
    for (uint32_t at = hash >> shift_;; at = (at + 1) & mask_) {
      const Slot& slot = slots_.get()[at];
      if (slot.id == kNone || (slot.hash == hash && has(slot.id))) return slot.id;
    }
  }

  // Numbers count from 0. False when memory is exhausted.
  bool add_next(uint32_t hash);

  uint32_t count() const { return count_; }

 private:
  struct Slot {
    uint32_t hash;
    Id id;
  };

  bool resize(uint32_t capacity);
  void insert(const Slot& slot);

  Owned<Slot> slots_;
  uint32_t mask_ = 0;
  uint32_t shift_ = 0;
  uint32_t count_ = 0;
};

class ConfKeys {
 public:
  using Id = IdTable::Id;
  static constexpr Id kNone = IdTable::kNone;

  struct Section {
    std::string_view name;
    Id first_key;  // of its own; those of a conf's section come one after the other
  };
  struct Key {
    std::string_view name;
    std::string_view value;
    Id section;
  };

  // What is not there is appended. `name` comes trimmed as in a file, and outlives the
  // table. kNone when memory is exhausted.
  Id section(std::string_view name);
  Id key(Id section, std::string_view name);

  // The same for what is known not to be there: no name is hashed before one is looked for.
  Id append_section(std::string_view name);
  Id append_key(Id section, std::string_view name, std::string_view value);

  // kNone when there is none. Most callers go through a file in the order of the keys: the
  // number that they expect, which need not be one, is asked first.
  Id find_section(std::string_view name, Id expected) const;
  Id find_key(Id section, std::string_view name, Id expected) const;

  // Whether memory was exhausted when a name was to be hashed. What was not found since
  // then may be there.
  bool is_exhausted() const { return is_exhausted_; }

  uint32_t section_count() const { return static_cast<uint32_t>(sections_.size()); }
  uint32_t key_count() const { return static_cast<uint32_t>(keys_.size()); }
  const Section& section_at(Id id) const { return sections_[id]; }
  const Key& key_at(Id id) const { return keys_[id]; }
  std::string_view& value_at(Id id) { return keys_[id].value; }

 private:
  void index_sections() const;
  void index_keys() const;

  Array<Section> sections_;
  Array<Key> keys_;
  // Of the first so many sections and keys.
  mutable IdTable section_ids_;
  mutable IdTable key_ids_;
  mutable bool is_exhausted_ = false;
};

// A copy of what a conf holds.
struct ConfSnapshot {
  ConfKeys keys;
  Owned<char> text;        // that the keys are views of
  bool is_all_own = true;  // no record is a program's own

  // To be called once, with the conf's mutex held. False when memory is exhausted.
  bool take(const GConf* conf);

  // A program's own records may have a name that is there already; only the first is ever
  // found. The library makes no such record.
  bool has_duplicates() const;
};

// Takes in a whole text as loading does. False when memory is exhausted.
bool read_conf_text(ConfKeys& keys, std::string_view text);

// Goes through a text line by line and finds each line in a table.
class FoundLines {
 public:
  FoundLines(const ConfKeys& keys, std::string_view text)
      : keys_(keys), next_(text.data()), end_(text.data() + text.size()) {}

  // To be called before the first line, too. False at the end.
  bool advance();

  // The line, without its newline.
  std::string_view text() const { return text_; }
  // Where the next line begins; the end of the text after the last one.
  const char* next() const { return next_ != nullptr ? next_ : end_; }
  bool is_last() const { return next_ == nullptr; }

  // An entry before the first section is kIgnored.
  Line::Kind kind() const { return parsed_.kind; }
  std::string_view value() const { return parsed_.value; }
  // Of the header or entry; kNone when the table lacks it.
  ConfKeys::Id section() const { return section_; }
  // Of the entry; kNone when the table lacks it.
  ConfKeys::Id key() const { return key_; }

 private:
  const ConfKeys& keys_;
  const char* next_;  // null after the last line
  const char* const end_;
  std::string_view text_;
  Line parsed_;
  bool in_section_ = false;
  ConfKeys::Id section_ = ConfKeys::kNone;
  ConfKeys::Id key_ = ConfKeys::kNone;
  ConfKeys::Id expected_ = 0;
};

}  // namespace groundwork

#endif
