// A conf beside the text of its file: which line has which key. For as long as the conf's
// mutex is held and the text is there.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_TABLE_H
#define GROUNDWORK_SAFE_CONF_TABLE_H

#include <groundwork/conf.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "conf/line.h"
#include "core/byte_array.h"
#include "core/owned.h"

namespace groundwork {

// The sections and keys in one array: those of the conf, in its order, each section before
// its keys; then those that only the text has.
class ConfTable {
 public:
  using Id = uint32_t;
  static constexpr Id kNone = UINT32_MAX;

  struct Item {
    std::string_view name;
    void* record;            // null: only the text has it
    Id section;              // of a key; kNone for a section
    Id end;                  // of a section: past its last key
    const char* line;        // the last one of it in the text; null for none
    std::string_view found;  // the value there

    bool is_section() const { return section == kNone; }
    std::string_view value() const;  // of a key of the conf
    bool has_value(std::string_view trimmed_value) const;
  };

  // To be called once, with the conf's mutex held.
  void take(const GConf* conf);

  // kNone when there is none. Most callers go through a text in the order of the conf: the
  // id that they expect, which need not be one, is asked first, and no name is hashed
  // before that fails. `section` is kNone for a section.
  Id find(Id section, std::string_view name, Id expected);

  // kNone when memory is exhausted.
  Id append(Id section, std::string_view name, void* record = nullptr);

  // Whether memory was exhausted in any of these calls. Then the table is of no use.
  bool is_exhausted() const { return is_exhausted_; }

  // Whether two of the conf's records have the same name: only the first is ever found. The
  // library makes no such record, but a program's own may be one.
  bool has_duplicates();

  Id size() const { return static_cast<Id>(items_.size()); }
  Item& operator[](Id id) { return items_[id]; }

 private:
  bool index();
  Id& slot_of(Id section, std::string_view name);
  bool is(Id id, Id section, std::string_view name) const;

  Array<Item> items_;
  // From the hash of a name to the id of what has that name: open addressing, linear
  // probing, at most half full.
  Owned<Id> slots_;
  uint32_t mask_ = 0;
  Id indexed_ = 0;          // so many items have a slot
  bool is_all_own_ = true;  // no record is a program's own
  bool is_exhausted_ = false;
};

// Goes through a text line by line and finds each line in a table.
class TableLines {
 public:
  // `adds`: what the table lacks is appended to it.
  TableLines(ConfTable& table, std::string_view text, bool adds)
      : table_(table), rest_(text), adds_(adds) {}

  // Goes on to the next header or entry. An entry before the first section is none. False
  // at the end, and when memory is exhausted.
  bool advance();

  const char* begin() const { return begin_; }
  // Where the next line begins.
  const char* next() const { return rest_.data(); }

  bool is_header() const { return line_.kind == Line::Kind::kHeader; }
  std::string_view value() const { return line_.value; }
  // kNone when the table lacks it.
  ConfTable::Id section() const { return section_; }
  // Of the header or entry; kNone when the table lacks it.
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
