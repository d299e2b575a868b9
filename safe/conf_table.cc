// SPDX-License-Identifier: MIT

#include "safe/conf_table.h"

#include <cstdlib>
#include <cstring>

#include "conf/model.h"
#include "conf/name_compare.h"
#include "conf/trim.h"

namespace groundwork {

std::string_view ConfTable::Item::value() const {
  return trimmed(static_cast<const GConfEntry*>(record)->value);
}

bool ConfTable::Item::has_value(std::string_view trimmed_value) const {
  const char* const stored = static_cast<const GConfEntry*>(record)->value;
  const size_t size = trimmed_value.size();
  // They are usually equal, and then neither is measured.
  return (std::strncmp(stored, trimmed_value.data(), size) == 0 && stored[size] == '\0') ||
         trimmed(stored) == trimmed_value;
}

void ConfTable::take(const GConf* conf) {
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    GConfSection* const record = section_in(node);
    const Id section = append(kNone, record->name, record);
    if (section == kNone) return;
    for (const GList* line = record->entries; line != nullptr; line = line->next) {
      GConfEntry* const entry = entry_in(line);
      if (append(section, entry->key, entry) == kNone) return;
    }
    items_[section].end = size();
  }
}

ConfTable::Id ConfTable::append(Id section, std::string_view name, void* record) {
  const Id id = size();
  if (items_.add({name, record, section, id + 1, nullptr, {}})) return id;
  is_exhausted_ = true;
  return kNone;
}

bool ConfTable::is(Id id, Id section, std::string_view name) const {
  const Item& item = items_[id];
  return item.section == section && same_name(item.name, name);
}

// Returns its slot, or the empty one where it would be.
ConfTable::Id& ConfTable::slot_of(Id section, std::string_view name) {
  uint32_t at = keyed_hash(name.data(), name.size(), seed_) + section * 0x9e3779b1u;
  for (;; ++at) {
    Id& id = slots_.get()[at & mask_];
    if (id == kNone || is(id, section, name)) return id;
  }
}

// Gives each item a slot, unless an item with the same name has it.
bool ConfTable::index() {
  if (slots_ == nullptr || size() > mask_ / 2) {
    uint32_t capacity = 16;
    while (capacity / 4 < size()) capacity *= 2;
    size_t bytes = 0;
    if (__builtin_mul_overflow(capacity, sizeof(Id), &bytes)) return false;
    slots_.reset(static_cast<Id*>(std::malloc(bytes)));
    if (slots_ == nullptr) return false;
    std::memset(slots_.get(), 0xff, bytes);  // kNone
    mask_ = capacity - 1;
    indexed_ = 0;
    has_duplicates_ = false;
  }
  for (; indexed_ < size(); ++indexed_) {
    Id& slot = slot_of(items_[indexed_].section, items_[indexed_].name);
    if (slot == kNone) {
      slot = indexed_;
    } else {
      has_duplicates_ = true;
    }
  }
  return true;
}

ConfTable::Id ConfTable::find(Id section, std::string_view name, Id expected) {
  if (expected < size() && is(expected, section, name)) return expected;
  if (index()) return slot_of(section, name);
  is_exhausted_ = true;
  return kNone;
}

bool ConfTable::has_duplicates() {
  is_exhausted_ |= !index();
  return has_duplicates_;
}

ConfTable::Id TableLines::find(ConfTable::Id section, ConfTable::Id expected) {
  const ConfTable::Id id = table_.find(section, line_.name, expected);
  return id == ConfTable::kNone && adds_ ? table_.append(section, line_.name) : id;
}

bool TableLines::advance() {
  do {
    if (rest_.empty()) return false;
    begin_ = rest_.data();
    line_ = take_line(rest_);
  } while (line_.kind == Line::Kind::kIgnored || !(in_section_ || is_header()));
  in_section_ = true;
  if (is_header()) {
    const bool is_after_one = section_ != ConfTable::kNone;
    section_ = find(ConfTable::kNone, is_after_one ? table_[section_].end : 0);
    id_ = section_;
    expected_ = section_ + 1;
  } else {
    id_ = section_ != ConfTable::kNone ? find(section_, expected_) : ConfTable::kNone;
    if (id_ != ConfTable::kNone) expected_ = id_ + 1;
  }
  return !table_.is_exhausted();
}

}  // namespace groundwork
