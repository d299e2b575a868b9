// Relates a conf to the text of its file: which line has which key. Valid as long as the
// conf's mutex is held and the text exists.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_TABLE_H
#define GROUNDWORK_SAFE_CONF_TABLE_H

#include <groundwork/conf.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "conf/line.h"
#include "conf/name_hash.h"
#include "core/byte_array.h"
#include "core/owned.h"

namespace groundwork {

// All sections and keys in one array: first those of the conf, in its order, each section
// before its keys; then those that are only in the text.
class ConfTable {
 public:
  using Id = uint32_t;
  static constexpr Id kNone = UINT32_MAX;

  struct Item {
    std::string_view name;
    void* record;            // null: only in the text
    Id section;              // the section of a key; kNone for a section
    Id end;                  // of a section: past its last key
    const char* line;        // its last line in the text; null: none
    std::string_view found;  // the value in that line

    bool is_section() const { return section == kNone; }
    std::string_view value() const;  // of a key of the conf
    bool has_value(std::string_view trimmed_value) const;
  };

  // Must be called once, with the conf's mutex held.
  void take(const GConf* conf);

  // Returns kNone if there is none. A text is usually in the order of the conf: the id that
  // the caller expects, which need not be valid, is tried first, and names are hashed only
  // if that fails. `section` is kNone for a section.
  Id find(Id section, std::string_view name, Id expected);

  // Returns kNone when memory is exhausted.
  Id append(Id section, std::string_view name, void* record = nullptr);

  // Returns whether memory was exhausted in any of these calls. The table is then unusable.
  bool is_exhausted() const { return is_exhausted_; }

  // Returns whether two of the conf's records have the same name, of which only the first
  // is ever found. The library creates no such records, but a program may: by adding one of
  // its own, or by writing into the name of any.
  bool has_duplicates();

  Id size() const { return static_cast<Id>(items_.size()); }
  Item& operator[](Id id) { return items_[id]; }

 private:
  bool index();
  Id& slot_of(Id section, std::string_view name);
  bool is(Id id, Id section, std::string_view name) const;

  Array<Item> items_;
  // Hash table from names to ids: open addressing, linear probing, at most half full.
  Owned<Id> slots_;
  uint32_t mask_ = 0;
  const uint32_t seed_ = process_seed();
  Id indexed_ = 0;               // the number of items in the hash table
  bool has_duplicates_ = false;  // among those in the hash table
  bool is_exhausted_ = false;
};

// Walks a text line by line and looks each line up in a table.
class TableLines {
 public:
  // `adds`: append what is not in the table.
  TableLines(ConfTable& table, std::string_view text, bool adds)
      : table_(table), rest_(text), adds_(adds) {}

  // Advances to the next header or entry; ignores entries before the first section. False
  // at the end, and when memory is exhausted.
  bool advance();

  const char* begin() const { return begin_; }
  // The beginning of the next line.
  const char* next() const { return rest_.data(); }

  bool is_header() const { return line_.kind == Line::Kind::kHeader; }
  std::string_view value() const { return line_.value; }
  // kNone if it is not in the table.
  ConfTable::Id section() const { return section_; }
  // The id of the header or entry; kNone if it is not in the table.
  ConfTable::Id id() const { return id_; }

 private:
  ConfTable::Id find(ConfTable::Id section, ConfTable::Id expected);

  ConfTable& table_;
  const char* begin_ = nullptr;
  std::string_view rest_;
  Line line_;
  ConfTable::Id section_ = ConfTable::kNone;
  ConfTable::Id id_ = ConfTable::kNone;
  ConfTable::Id expected_ = 0;
  bool in_section_ = false;
  const bool adds_;
};

}  // namespace groundwork

#endif
