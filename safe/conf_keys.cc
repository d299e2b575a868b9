// SPDX-License-Identifier: MIT

#include "safe/conf_keys.h"

#include <bit>
#include <cstdlib>
#include <cstring>

#include "conf/model.h"
#include "conf/name_compare.h"
#include "conf/name_hash.h"
#include "conf/record.h"
#include "conf/trim.h"

namespace groundwork {
namespace {

constexpr uint32_t kFewest = 16;

uint32_t hash_of(ConfKeys::Id section, std::string_view key) {
  return keyed_hash(key) + section * 0x9e3779b1u;
}

// Views of the strings of a conf that are being copied one after the other into a block.
class Copier {
 public:
  explicit Copier(char* at) : at_(at) {}

  std::string_view copy(std::string_view text) {
    char* const begin = at_;
    if (!text.empty()) std::memcpy(begin, text.data(), text.size());
    at_ += text.size();
    return {begin, text.size()};
  }

 private:
  char* at_;
};

// Bytes of all names and values together: they are in memory, each in a block of its own.
size_t size_of_strings(const GConf* conf) {
  size_t size = 0;
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    size += std::strlen(section_in(node)->name);
    for (const GList* line = section_in(node)->entries; line != nullptr;
         line = line->next) {
      size += std::strlen(entry_in(line)->key) + std::strlen(entry_in(line)->value);
    }
  }
  return size;
}

}  // namespace

bool IdTable::add_next(uint32_t hash) {
  const uint32_t capacity = slots_ != nullptr ? mask_ + 1 : 0;
  if (count_ >= capacity / 2 && !resize(capacity != 0 ? 2 * capacity : kFewest))
    return false;
  insert({hash, count_});
  ++count_;
  return true;
}

bool IdTable::resize(uint32_t capacity) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(size_t{capacity}, sizeof(Slot), &bytes)) return false;
  Owned<Slot> old(static_cast<Slot*>(std::malloc(bytes)));
  if (old == nullptr) return false;
  old.swap(slots_);
  const uint32_t old_capacity = old != nullptr ? mask_ + 1 : 0;
  mask_ = capacity - 1;
  shift_ = static_cast<uint32_t>(std::countl_zero(mask_));
  for (uint32_t at = 0; at < capacity; ++at) slots_.get()[at].id = kNone;
  for (uint32_t at = 0; at < old_capacity; ++at) {
    if (old.get()[at].id != kNone) insert(old.get()[at]);
  }
  return true;
}

void IdTable::insert(const Slot& slot) {
  uint32_t at = slot.hash >> shift_;
  while (slots_.get()[at].id != kNone) at = (at + 1) & mask_;
  slots_.get()[at] = slot;
}

void ConfKeys::index_sections() const {
  while (!is_exhausted_ && section_ids_.count() < section_count()) {
    is_exhausted_ =
        !section_ids_.add_next(keyed_hash(sections_[section_ids_.count()].name));
  }
}

void ConfKeys::index_keys() const {
  while (!is_exhausted_ && key_ids_.count() < key_count()) {
    const Key& key = keys_[key_ids_.count()];
    is_exhausted_ = !key_ids_.add_next(hash_of(key.section, key.name));
  }
}

ConfKeys::Id ConfKeys::find_section(std::string_view name, Id expected) const {
  const auto is_it = [this, name](Id id) { return same_name(sections_[id].name, name); };
  if (expected < section_count() && is_it(expected)) return expected;
  index_sections();
  return section_ids_.find(keyed_hash(name), is_it);
}

ConfKeys::Id ConfKeys::find_key(Id section, std::string_view name, Id expected) const {
  const auto is_it = [this, section, name](Id id) {
    return keys_[id].section == section && same_name(keys_[id].name, name);
  };
  if (expected < key_count() && is_it(expected)) return expected;
  index_keys();
  return key_ids_.find(hash_of(section, name), is_it);
}

ConfKeys::Id ConfKeys::append_section(std::string_view name) {
  const Id next = section_count();
  return sections_.add({name, key_count()}) ? next : kNone;
}

ConfKeys::Id ConfKeys::append_key(Id section, std::string_view name,
                                  std::string_view value) {
  const Id next = key_count();
  return keys_.add({name, value, section}) ? next : kNone;
}

ConfKeys::Id ConfKeys::section(std::string_view name) {
  const Id found = find_section(name, kNone);
  if (is_exhausted_) return kNone;
  return found != kNone ? found : append_section(name);
}

ConfKeys::Id ConfKeys::key(Id section, std::string_view name) {
  const Id found = find_key(section, name, kNone);
  if (is_exhausted_) return kNone;
  return found != kNone ? found : append_key(section, name, {});
}

bool ConfSnapshot::take(const GConf* conf) {
  // One more: a block of no bytes may be null.
  text.reset(static_cast<char*>(std::malloc(size_of_strings(conf) + 1)));
  if (text == nullptr) return false;
  Copier copier(text.get());
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    const GConfSection* const record = section_in(node);
    if (whole_of<Section>(record) == nullptr) is_all_own = false;
    const ConfKeys::Id section = keys.append_section(copier.copy(record->name));
    if (section == ConfKeys::kNone) return false;
    for (const GList* line = record->entries; line != nullptr; line = line->next) {
      const GConfEntry* const entry = entry_in(line);
      if (whole_of<Entry>(entry) == nullptr) is_all_own = false;
      const std::string_view name = copier.copy(entry->key);
      const std::string_view value = copier.copy(trimmed(entry->value));
      if (keys.append_key(section, name, value) == ConfKeys::kNone) return false;
    }
  }
  return true;
}

bool ConfSnapshot::has_duplicates() const {
  if (is_all_own) return false;
  for (ConfKeys::Id id = 0; id < keys.section_count(); ++id) {
    if (keys.find_section(keys.section_at(id).name, ConfKeys::kNone) != id) return true;
  }
  for (ConfKeys::Id id = 0; id < keys.key_count(); ++id) {
    const ConfKeys::Key& key = keys.key_at(id);
    if (keys.find_key(key.section, key.name, ConfKeys::kNone) != id) return true;
  }
  return false;
}

bool read_conf_text(ConfKeys& keys, std::string_view text) {
  ConfKeys::Id section = ConfKeys::kNone;
  return for_each_line_of(text, [&](std::string_view line) {
    const Line parsed = parse_line(line);
    if (parsed.kind == Line::Kind::kHeader) {
      section = keys.section(parsed.name);
      return section != ConfKeys::kNone;
    }
    if (parsed.kind == Line::Kind::kIgnored || section == ConfKeys::kNone) return true;
    const ConfKeys::Id key = keys.key(section, parsed.name);
    if (key == ConfKeys::kNone) return false;
    keys.value_at(key) = parsed.value;
    return true;
  });
}

bool FoundLines::advance() {
  if (next_ == nullptr) return false;
  text_ = {next_, static_cast<size_t>(end_ - next_)};
  text_ = between(text_, 0, position_of(text_, '\n'));
  const char* const newline = text_.data() + text_.size();
  next_ = newline != end_ ? newline + 1 : nullptr;

  parsed_ = parse_line(text_);
  key_ = ConfKeys::kNone;
  if (parsed_.kind == Line::Kind::kHeader) {
    in_section_ = true;
    section_ = keys_.find_section(parsed_.name, section_ + 1);
    if (section_ != ConfKeys::kNone) expected_ = keys_.section_at(section_).first_key;
  } else if (!in_section_) {
    parsed_.kind = Line::Kind::kIgnored;
  } else if (parsed_.kind == Line::Kind::kEntry && section_ != ConfKeys::kNone) {
    key_ = keys_.find_key(section_, parsed_.name, expected_);
    if (key_ != ConfKeys::kNone) expected_ = key_ + 1;
  }
  return true;
}

}  // namespace groundwork
