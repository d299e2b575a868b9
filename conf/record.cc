// Creating and freeing records.
//
// SPDX-License-Identifier: MIT

#include "conf/record.h"

#include <groundwork/hash.h>
#include <groundwork/list.h>
#include <groundwork/thread.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace groundwork {
namespace {

// Copies a text and adds a NUL.
void put(char* at, std::string_view text) {
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  at[text.size()] = '\0';
}

template <typename Record>
char* texts_of(Record* record) {
  return reinterpret_cast<char*>(record) + text_offset(sizeof(Record));
}

// The offset of the value from the key in an entry's block: even, and so at an odd address.
constexpr size_t value_offset(size_t key_length) {
  return (key_length + 2) & ~size_t{1};
}

// Allocates a block for a record and its texts. The texts may be the same huge string
// twice, so that the sum of their lengths overflows.
template <typename Record>
Record* allocate_record(size_t name_length, size_t value_length = 0) {
  size_t size = text_offset(sizeof(Record)) + 3;  // two NULs and the value's alignment
  if (__builtin_add_overflow(size, name_length, &size)) return nullptr;
  if (__builtin_add_overflow(size, value_length, &size)) return nullptr;
  return static_cast<Record*>(std::malloc(size));
}

void free_text(char* text) {
  if (!shares_block(text)) std::free(text);
}

void free_list_of_entries(GConfSection* section) {
  for (const GList* node = section->entries; node != nullptr; node = node->next) {
    free_entry(static_cast<GConfEntry*>(node->data));
  }
  g_list_free(section->entries);
}

}  // namespace

Entry* new_entry(std::string_view key, std::string_view value) {
  Entry* const entry = allocate_record<Entry>(key.size(), value.size());
  if (entry == nullptr) return nullptr;
  char* const key_text = texts_of(entry);
  char* const value_text = key_text + value_offset(key.size());
  put(key_text, key);
  put(value_text, value);
  return new (entry) Entry{{key_text, value_text}, {nullptr, key.size()}};
}

Section* new_section(std::string_view name) {
  Section* const section = allocate_record<Section>(name.size());
  if (section == nullptr) return nullptr;
  put(texts_of(section), name);
  return new (section) Section{{texts_of(section), nullptr}, {nullptr, name.size()}};
}

Conf* new_conf_record(std::string_view filename) {
  Conf* const conf = allocate_record<Conf>(filename.size());
  if (conf == nullptr) return nullptr;
  put(texts_of(conf), filename);
  return new (conf) Conf{{texts_of(conf), nullptr, 0, nullptr, nullptr}};
}

void free_entry(GConfEntry* entry) {
  free_text(entry->value);
  free_text(entry->key);
  std::free(entry);
}

void free_section(GConfSection* section) {
  free_list_of_entries(section);
  if (Section* const record = container_of<Section>(section); record != nullptr) {
    record->entries.clear();
  }
  free_text(section->name);
  std::free(section);
}

void free_conf(GConf* conf) {
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    free_section(static_cast<GConfSection*>(node->data));
  }
  g_list_free(conf->sections);
  if (Conf* const record = container_of<Conf>(conf); record != nullptr)
    record->sections.clear();
  g_thread_mutex_free(conf->mutex);
  g_hash_free(conf->callbacks);
  free_text(conf->filename);
  std::free(conf);
}

}  // namespace groundwork
