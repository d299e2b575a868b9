// The lists of a conf: look-up, storing and removal.
//
// SPDX-License-Identifier: MIT

#include "conf/model.h"

#include <groundwork/callback.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "conf/name_index.h"
#include "conf/record.h"
#include "conf/trim.h"
#include "core/built_for.h"
#include "core/owned.h"

namespace groundwork {
namespace {

// The index of a list; null if the record is a program's own.
NameIndex* index_of(const GConfSection* section) {
  Section* const record = container_of<Section>(section);
  return record != nullptr ? &record->entries : nullptr;
}

NameIndex* index_of(const GConf* conf) {
  Conf* const record = container_of<Conf>(conf);
  return record != nullptr ? &record->sections : nullptr;
}

// Creates an unlinked node for a record.
GList* new_node(void* record) {
  auto* const node = static_cast<GList*>(std::malloc(sizeof(GList)));
  if (node != nullptr) *node = {nullptr, nullptr, record};
  return node;
}

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

void append(GList*& list, NameIndex* index, GList* node) {
  if (index != nullptr) index->update(list);
  link_last(list, index, node);
}

void unlink(GList*& list, NameIndex* index, void* record) {
  if (index == nullptr) {
    list = g_list_remove(list, record);
    return;
  }
  index->update(list);
  index->remove(list, record);
}

// Trims a value in place and returns its length.
[[gnu::cold, gnu::noinline]] size_t trim_value(char* value) {
  const std::string_view kept = trimmed(value);
  std::memmove(value, kept.data(), kept.size());
  value[kept.size()] = '\0';
  return kept.size();
}

// The value of an entry. Kept: trimmed in place, although stored values are trimmed, since
// a program may have written into it.
inline std::string_view trimmed_value(const GConfEntry* entry) {
  const std::string_view value = entry->value;
  // Written to only if necessary: other threads may be reading it.
  if (!is_trimmed(value)) [[unlikely]]
    return {entry->value, trim_value(entry->value)};
  return value;
}

// Gives an entry a new value; false when memory is exhausted.
bool replace_value(GConfEntry* entry, std::string_view value, char** old_value) {
  auto* const copy = static_cast<char*>(std::malloc(value.size() + 1));
  if (copy == nullptr) return false;
  if (!value.empty()) std::memcpy(copy, value.data(), value.size());
  copy[value.size()] = '\0';
  *old_value = exchange_value(entry, copy);
  return true;
}

// Adds a key to a section; if `section` is null, creates one with that name.
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
    append_section(conf, section_node);
  }
  append_entry(section, entry_node);
  return true;
}

void destroy_callbacks(void* key, void* callbacks) {
  std::free(key);
  g_callback_free(static_cast<GCallback*>(callbacks));
}

}  // namespace

GConf* new_conf(const char* filename) {
  Owned<Conf> conf(new_conf_record(filename));
  if (conf == nullptr) return nullptr;
  GMutex* const mutex = g_thread_mutex_new();
  if (mutex == nullptr) return nullptr;
  GHash* const callbacks = g_hash_new(8, g_hash_str, g_hash_str_equal, destroy_callbacks);
  if (callbacks == nullptr) {
    g_thread_mutex_free(mutex);
    return nullptr;
  }
  conf->public_part.mutex = mutex;
  conf->public_part.callbacks = callbacks;
  conf->file_content.state = FileContent::kNoFile;
  return &conf.release()->public_part;
}

FileContent file_content(const GConf* conf) {
  const Conf* const record = container_of<Conf>(conf);
  return record != nullptr ? record->file_content : FileContent();
}

void set_file_content(GConf* conf, const FileContent& content) {
  Conf* const record = container_of<Conf>(conf);
  if (record != nullptr) record->file_content = content;
}

void set_file_text(GConf* conf, const char* text, size_t size) {
  set_file_content(conf, {FileContent::kText, fingerprint_of(text, size)});
}

pthread_mutex_t* file_mutex(GConf* conf) {
  Conf* const record = container_of<Conf>(conf);
  return record != nullptr ? &record->file_mutex : nullptr;
}

GConfSection* find_section(const GConf* conf, std::string_view name) {
  return static_cast<GConfSection*>(NameIndex::find(index_of(conf), conf->sections, name));
}

GConfEntry* find_entry(const GConfSection* section, std::string_view key) {
  return static_cast<GConfEntry*>(
      NameIndex::find(index_of(section), section->entries, key));
}

FLAT_FOR_SPEED const char* find_value(const GConf* conf, const char* section,
                                      const char* key) {
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
    char* old_value = nullptr;
    const bool replaced = replace_value(entry, value, &old_value);
    std::free(old_value);
    return replaced;
  }
  GList* const node = new_entry_node(key, value);
  if (node == nullptr) return false;
  link_last(section->entries, index_of(section), node);
  return true;
}

FLAT_FOR_SPEED Stored store(GConf* conf, const char* section_name, std::string_view key,
                            const char* value, char** old_value) {
  const std::string_view kept_key = trimmed(key);
  GConfSection* const section = find_section(conf, section_name);
  GConfEntry* const entry = section != nullptr ? find_entry(section, kept_key) : nullptr;

  // Kept: the comparison uses the key and the value as given. No stored key has spaces
  // around it, so such a key counts as absent here.
  const bool is_absent = entry == nullptr || key.size() != kept_key.size();
  const std::string_view stored = is_absent ? std::string_view() : trimmed_value(entry);
  const std::string_view given = value;  // measured after trimming, which may change it
  if (given == stored) return Stored::kSame;

  const std::string_view kept_value = trimmed(given);
  const bool done = entry != nullptr
                        ? replace_value(entry, kept_value, old_value)
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

GList* new_section_node(std::string_view name) {
  Owned<Section> section(new_section(name));
  GList* const node = section != nullptr ? new_node(section.get()) : nullptr;
  if (node != nullptr) section.release();
  return node;
}

GList* new_entry_node(std::string_view key, std::string_view value) {
  Owned<Entry> entry(new_entry(key, value));
  GList* const node = entry != nullptr ? new_node(entry.get()) : nullptr;
  if (node != nullptr) entry.release();
  return node;
}

void free_section_node(GList* node) {
  free_section(section_in(node));
  std::free(node);
}

void free_entry_node(GList* node) {
  free_entry(entry_in(node));
  std::free(node);
}

void append_section(GConf* conf, GList* node) {
  append(conf->sections, index_of(conf), node);
}

void append_entry(GConfSection* section, GList* node) {
  append(section->entries, index_of(section), node);
}

char* exchange_value(GConfEntry* entry, char* value) {
  char* const old_value = entry->value;
  entry->value = value;
  return shares_block(old_value) ? nullptr : old_value;
}

}  // namespace groundwork
