// Records, larger than their public part. One block holds a record, what is hidden behind
// it and its name; for an entry also its first value. So loading costs two blocks a key,
// the record and its node, and the text of a key stands beside the pointers to it.
//
// SPDX-License-Identifier: MIT

#include "conf/model.h"

#include <groundwork/callback.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "conf/name.h"
#include "conf/name_index.h"
#include "core/owned.h"

namespace groundwork {
namespace {

struct Entry {
  GConfEntry shown;
  Hidden hidden;
};

struct Section {
  GConfSection shown;
  Hidden hidden;
  NameIndex entries{sizeof(Entry)};
};

struct Conf {
  GConf shown;
  NameIndex sections{sizeof(Section)};
};

static_assert(offsetof(GConfEntry, key) == 0 &&
              offsetof(GConfEntry, value) == sizeof(void*) &&
              offsetof(Entry, hidden) == kHiddenOffset);
static_assert(offsetof(GConfSection, name) == 0 &&
              offsetof(GConfSection, entries) == sizeof(void*) &&
              offsetof(Section, hidden) == kHiddenOffset);
static_assert(offsetof(GConf, filename) == 0 &&
              offsetof(GConf, sections) == sizeof(void*) &&
              offsetof(GConf, dirty) == 2 * sizeof(void*) &&
              offsetof(GConf, mutex) == 3 * sizeof(void*) &&
              offsetof(GConf, callbacks) == 4 * sizeof(void*));

// Where the text of a whole record begins: its name.
template <typename Whole>
char* text_of(Whole* whole) {
  return reinterpret_cast<char*>(whole + 1) + kNameGap;
}

// The whole record behind the public part; null for a record that a program made itself or
// whose name it replaced. Compares addresses before it looks behind the public part.
template <typename Whole, typename Shown>
Whole* whole_of(const Shown* shown, const char* name) {
  const auto own_name = reinterpret_cast<std::uintptr_t>(shown) + sizeof(Whole) + kNameGap;
  if (reinterpret_cast<std::uintptr_t>(name) != own_name) return nullptr;
  return reinterpret_cast<Whole*>(const_cast<Shown*>(shown));
}

Entry* whole(const GConfEntry* entry) {
  return whole_of<Entry>(entry, entry->key);
}

NameIndex* index_of(const GConfSection* section) {
  Section* const own = whole_of<Section>(section, section->name);
  return own != nullptr ? &own->entries : nullptr;
}

NameIndex* index_of(const GConf* conf) {
  Conf* const own = whole_of<Conf>(conf, conf->filename);
  return own != nullptr ? &own->sections : nullptr;
}

// Copies with a NUL; returns the place behind it.
char* put(char* at, std::string_view text) {
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  at[text.size()] = '\0';
  return at + text.size() + 1;
}

// A block for a record and its texts, which may be the same huge string twice.
template <typename Whole>
Whole* allocate_whole(std::string_view name, std::string_view value = {}) {
  std::size_t size = sizeof(Whole) + kNameGap + 2;  // two NULs
  if (__builtin_add_overflow(size, name.size(), &size)) return nullptr;
  if (__builtin_add_overflow(size, value.size(), &size)) return nullptr;
  return static_cast<Whole*>(std::malloc(size));
}

Entry* new_entry(std::string_view key, std::string_view value) {
  Entry* const entry = allocate_whole<Entry>(key, value);
  if (entry == nullptr) return nullptr;
  char* const value_text = put(text_of(entry), key);
  put(value_text, value);
  return new (entry) Entry{{text_of(entry), value_text}, {nullptr, key.size()}};
}

Section* new_section(std::string_view name) {
  Section* const section = allocate_whole<Section>(name);
  if (section == nullptr) return nullptr;
  put(text_of(section), name);
  return new (section) Section{{text_of(section), nullptr}, {nullptr, name.size()}};
}

// Whether the value is the one that the entry was made with, in the entry's own block.
bool has_first_value(const GConfEntry* entry) {
  const Entry* const own = whole(entry);
  return own != nullptr && entry->value == entry->key + own->hidden.name_length + 1;
}

void free_entry(GConfEntry* entry) {
  if (!has_first_value(entry)) std::free(entry->value);
  if (whole(entry) == nullptr) std::free(entry->key);
  std::free(entry);
}

void free_entries(GConfSection* section) {
  for (GList* node = section->entries; node != nullptr; node = node->next) {
    free_entry(static_cast<GConfEntry*>(node->data));
  }
  g_list_free(section->entries);
}

void free_section(GConfSection* section) {
  free_entries(section);
  if (NameIndex* const index = index_of(section); index != nullptr) {
    index->clear();
  } else {
    std::free(section->name);
  }
  std::free(section);
}

// A node for a record, linked to nothing.
GList* new_node(void* record) {
  return g_list_append(nullptr, record);
}

// Links a node at the end. A record of a program's own has no index for its list.
void link_last(GList*& list, NameIndex* index, GList* node) {
  if (index != nullptr) {
    index->append(list, node);
  } else if (GList* const last = g_list_last(list); last != nullptr) {
    last->next = node;
    node->prev = last;
  } else {
    list = node;
  }
}

void unlink(GList*& list, NameIndex* index, void* record) {
  if (index == nullptr) {
    list = g_list_remove(list, record);
    return;
  }
  index->renew(list);
  index->remove(list, record);
}

[[gnu::cold, gnu::noinline]] std::string_view trim_value(const GConfEntry* entry) {
  const std::string_view kept = trimmed(entry->value);
  std::memmove(entry->value, kept.data(), kept.size());
  entry->value[kept.size()] = '\0';
  return {entry->value, kept.size()};
}

// The value of an entry. Kept: trimmed where it stands, although what is stored is trimmed:
// a program may have written into it.
inline std::string_view trimmed_value(const GConfEntry* entry) {
  const std::string_view value = entry->value;
  // Written to only if need be: other threads may be reading it.
  if (!is_trimmed(value)) [[unlikely]]
    return trim_value(entry);
  return value;
}

// A new value for an entry; false when memory is exhausted.
bool replace_value(GConfEntry* entry, std::string_view value, char** former) {
  auto* const copy = static_cast<char*>(std::malloc(value.size() + 1));
  if (copy == nullptr) return false;
  put(copy, value);
  *former = has_first_value(entry) ? nullptr : entry->value;
  entry->value = copy;
  return true;
}

// An entry and its node, to be linked later.
GList* new_entry_node(std::string_view key, std::string_view value) {
  Owned<Entry> entry(new_entry(key, value));
  GList* const node = entry != nullptr ? new_node(entry.get()) : nullptr;
  if (node != nullptr) entry.release();
  return node;
}

GList* new_section_node(std::string_view name) {
  Owned<Section> section(new_section(name));
  GList* const node = section != nullptr ? new_node(section.get()) : nullptr;
  if (node != nullptr) section.release();
  return node;
}

GConfSection* section_in(const GList* node) {
  return static_cast<GConfSection*>(node->data);
}

void free_section_node(GList* node) {
  free_section(section_in(node));
  std::free(node);
}

void destroy_callbacks(void* key, void* callbacks) {
  std::free(key);
  g_callback_free(static_cast<GCallback*>(callbacks));
}

// Adds a key, in a section of that name that is found, or made when `section` is null.
bool add_entry(GConf* conf, GConfSection* section, const char* name, std::string_view key,
               std::string_view value) {
  GList* const section_node = section == nullptr ? new_section_node(name) : nullptr;
  if (section == nullptr && section_node == nullptr) return false;
  GList* const entry_node = new_entry_node(key, value);
  if (entry_node == nullptr) {
    if (section_node != nullptr) free_section_node(section_node);
    return false;
  }
  if (section_node != nullptr) {
    section = section_in(section_node);
    NameIndex* const sections = index_of(conf);
    if (sections != nullptr) sections->renew(conf->sections);
    link_last(conf->sections, sections, section_node);
  }
  NameIndex* const entries = index_of(section);
  if (entries != nullptr) entries->renew(section->entries);
  link_last(section->entries, entries, entry_node);
  return true;
}

}  // namespace

GConf* new_conf(const char* filename) {
  Owned<Conf> conf(allocate_whole<Conf>(filename));
  if (conf == nullptr) return nullptr;
  put(text_of(conf.get()), filename);
  GMutex* const mutex = g_thread_mutex_new();
  if (mutex == nullptr) return nullptr;
  GHash* const callbacks = g_hash_new(8, g_hash_str, g_hash_str_equal, destroy_callbacks);
  if (callbacks == nullptr) {
    g_thread_mutex_free(mutex);
    return nullptr;
  }
  new (conf.get()) Conf{{text_of(conf.get()), nullptr, 0, mutex, callbacks}};
  return &conf.release()->shown;
}

void free_conf(GConf* conf) {
  for (GList* node = conf->sections; node != nullptr; node = node->next) {
    free_section(section_in(node));
  }
  g_list_free(conf->sections);
  if (NameIndex* const index = index_of(conf); index != nullptr) {
    index->clear();
  } else {
    std::free(conf->filename);
  }
  g_thread_mutex_free(conf->mutex);
  g_hash_free(conf->callbacks);
  std::free(conf);
}

GConfSection* find_section(const GConf* conf, std::string_view name) {
  return static_cast<GConfSection*>(NameIndex::find(index_of(conf), conf->sections, name));
}

GConfEntry* find_entry(const GConfSection* section, std::string_view key) {
  return static_cast<GConfEntry*>(
      NameIndex::find(index_of(section), section->entries, key));
}

const char* find_value(const GConf* conf, const char* section, const char* key) {
  const GConfSection* const found = find_section(conf, section);
  if (found == nullptr) return nullptr;
  const GConfEntry* const entry = find_entry(found, key);
  if (entry == nullptr) return nullptr;
  const std::string_view value = trimmed_value(entry);
  return value.empty() ? nullptr : value.data();
}

GConfSection* load_section(GConf* conf, std::string_view name) {
  if (GConfSection* const section = find_section(conf, name); section != nullptr) {
    return section;
  }
  GList* const node = new_section_node(name);
  if (node == nullptr) return nullptr;
  link_last(conf->sections, index_of(conf), node);
  return section_in(node);
}

bool load_entry(GConfSection* section, std::string_view key, std::string_view value) {
  if (GConfEntry* const entry = find_entry(section, key); entry != nullptr) {
    char* former = nullptr;
    const bool replaced = replace_value(entry, value, &former);
    std::free(former);
    return replaced;
  }
  GList* const node = new_entry_node(key, value);
  if (node == nullptr) return false;
  link_last(section->entries, index_of(section), node);
  return true;
}

Stored store(GConf* conf, const char* section_name, std::string_view key, const char* value,
             char** former) {
  const std::string_view kept_key = trimmed(key);
  GConfSection* const section = find_section(conf, section_name);
  GConfEntry* const entry = section != nullptr ? find_entry(section, kept_key) : nullptr;

  // Kept: what is stored is compared under the key as it was given, and with the value as
  // it was given. No stored key has blanks around it, so such a key counts as absent here.
  const bool is_absent = entry == nullptr || key.size() != kept_key.size();
  const std::string_view stored = is_absent ? std::string_view() : trimmed_value(entry);
  const std::string_view given = value;  // measured only now: it may be what was trimmed
  if (given == stored) return Stored::kSame;

  const std::string_view kept_value = trimmed(given);
  const bool done = entry != nullptr
                        ? replace_value(entry, kept_value, former)
                        : add_entry(conf, section, section_name, kept_key, kept_value);
  return done ? Stored::kChanged : Stored::kNoMemory;
}

void remove_section(GConf* conf, GConfSection* section) {
  unlink(conf->sections, index_of(conf), section);
  free_section(section);
}

void remove_entry(GConfSection* section, GConfEntry* entry) {
  unlink(section->entries, index_of(section), entry);
  free_entry(entry);
}

}  // namespace groundwork
