// An open configuration and what may be done to it. Nothing here locks or logs; every
// function leaves all as it was when memory is exhausted.
//
// A conf is walked as programs walk it: along conf->sections and section->entries.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_MODEL_H
#define GROUNDWORK_CONF_MODEL_H

#include <groundwork/conf.h>
#include <groundwork/list.h>

#include <atomic>
#include <string_view>

#include <pthread.h>

#include "conf/fingerprint.h"

namespace groundwork {

// Source name of the whole store in log lines.
inline constexpr char kSource[] = "g_conf";

// An empty conf for a file, not dirty; null when memory is exhausted.
GConf* new_conf(const char* filename);
void free_conf(GConf* conf);

// Changed with the mutex held, so that it tells the truth of the lists; read without.
inline void set_dirty(GConf* conf, int dirty) {
  std::atomic_ref(conf->dirty).store(dirty, std::memory_order_relaxed);
}
inline bool is_dirty(GConf* conf) {
  return std::atomic_ref(conf->dirty).load(std::memory_order_relaxed) != 0;
}

// What the file held when this conf last loaded or wrote it.
FileContent file_content(const GConf* conf);
void set_file_content(GConf* conf, const FileContent& content);

// Makes those take turns that replace or read the file while other threads use the conf.
// Null when the conf is not the library's own any more.
pthread_mutex_t* file_mutex(GConf* conf);

GConfSection* find_section(const GConf* conf, std::string_view name);
GConfEntry* find_entry(const GConfSection* section, std::string_view key);

// The stored value; null when there is none or it is empty.
const char* find_value(const GConf* conf, const char* section, const char* key);

// Fills a conf that nobody else has seen: its lists are known to be as the library left
// them. `key` and `value` come trimmed.
GConfSection* load_section(GConf* conf, std::string_view name);  // found, or appended
bool load_entry(GConfSection* section, std::string_view key, std::string_view value);

enum class Stored { kNoMemory, kSame, kChanged };

// Stores a trimmed copy of `value` unless the stored text equals it as it is. A missing
// section and a missing key are appended. `former` gets the replaced text when that is a
// block of its own: for the caller to free.
Stored store(GConf* conf, const char* section, std::string_view key, const char* value,
             char** former);

void remove_section(GConf* conf, GConfSection* section);
void remove_entry(GConfSection* section, GConfEntry* entry);

// The same in two steps, for changes that must be done whole or not at all: first all that
// needs memory, then all that cannot fail.

// A node with a new record, in no list yet; null when memory is exhausted. The names are
// those that no record of the list has yet; key and value are trimmed.
GList* new_section_node(std::string_view name);
GList* new_entry_node(std::string_view key, std::string_view value);
void free_section_node(GList* node);  // with its entries
void free_entry_node(GList* node);

inline GConfSection* section_in(const GList* node) {
  return static_cast<GConfSection*>(node->data);
}
inline GConfEntry* entry_in(const GList* node) {
  return static_cast<GConfEntry*>(node->data);
}

// At the end of the list, which programs may have seen and changed.
void append_section(GConf* conf, GList* node);
void append_entry(GConfSection* section, GList* node);

// Gives an entry a trimmed value, a block from malloc() that the conf owns from then on.
// The former one when that is a block of its own, for the caller to free; else null.
char* exchange_value(GConfEntry* entry, char* value);

}  // namespace groundwork

#endif
