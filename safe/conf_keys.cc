// SPDX-License-Identifier: MIT

#include "safe/conf_keys.h"

#include <bit>
#include <cstdlib>
#include <cstring>

#include "conf/name_compare.h"
#include "conf/name_hash.h"
#include "conf/record.h"
#include "conf/trim.h"

namespace groundwork {
namespace {

constexpr std::uint32_t kFewest = 16;

std::uint32_t hash_of(ConfKeys::Id section, std::string_view key) {
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

// Calls take(section) and take(entry) for each that a file can hold; a section without
// entries is not written.
template <typename TakeSection, typename TakeEntry>
bool for_each_record(const GConf* conf, TakeSection take_section, TakeEntry take_entry) {
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    const auto* const section = static_cast<const GConfSection*>(node->data);
    if (!take_section(section)) return false;
    for (const GList* line = section->entries; line != nullptr; line = line->next) {
      if (!take_entry(static_cast<const GConfEntry*>(line->data))) return false;
    }
  }
  return true;
}

// Bytes of all names and values together: they are in memory, each in a block of its own.
std::size_t size_of_strings(const GConf* conf) {
  std::size_t size = 0;
  for_each_record(
      conf,
      [&size](const GConfSection* section) {
        size += std::strlen(section->name);
        return true;
      },
      [&size](const GConfEntry* entry) {
        size += std::strlen(entry->key) + trimmed(entry->value).size();
        return true;
      });
  return size;
}

}  // namespace

bool IdTable::add_next(std::uint32_t hash) {
  const std::uint32_t capacity = slots_ != nullptr ? mask_ + 1 : 0;
  if (count_ >= capacity / 2 && !resize(capacity != 0 ? 2 * capacity : kFewest))
    return false;
  insert({hash, count_});
  ++count_;
  return true;
}

bool IdTable::resize(std::uint32_t capacity) {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(std::size_t{capacity}, sizeof(Slot), &bytes)) return false;
  Owned<Slot> old(static_cast<Slot*>(std::malloc(bytes)));
  if (old == nullptr) return false;
  old.swap(slots_);
  const std::uint32_t old_capacity = old != nullptr ? mask_ + 1 : 0;
  mask_ = capacity - 1;
  shift_ = static_cast<std::uint32_t>(std::countl_zero(mask_));
  for (std::uint32_t at = 0; at < capacity; ++at) slots_.get()[at].id = kNone;
  for (std::uint32_t at = 0; at < old_capacity; ++at) {
    if (old.get()[at].id != kNone) insert(old.get()[at]);
  }
  return true;
}

void IdTable::insert(const Slot& slot) {
  std::uint32_t at = slot.hash >> shift_;
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
  ConfKeys::Id section = ConfKeys::kNone;
  return for_each_record(
      conf,
      [&](const GConfSection* record) {
        const std::string_view name = copier.copy(record->name);
        if (whole_of<Section>(record) == nullptr) is_all_own = false;
        section = keys.append_section(name);
        return section != ConfKeys::kNone;
      },
      [&](const GConfEntry* entry) {
        const std::string_view name = copier.copy(entry->key);
        if (whole_of<Entry>(entry) == nullptr) is_all_own = false;
        return keys.append_key(section, name, copier.copy(trimmed(entry->value))) !=
               ConfKeys::kNone;
      });
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

}  // namespace groundwork
