// An open configuration and the operations on it. Nothing here locks or logs. When memory
// is exhausted, functions change nothing.
//
// A conf is walked as programs do: along conf->sections and section->entries.
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

// The source name in the log lines of this folder.
constexpr char kSource[] = "g_conf";

// Creates an empty conf for a file, not dirty; null when memory is exhausted.
GConf* new_conf(const char* filename);
void free_conf(GConf* conf);

// Written with the mutex held, so that it agrees with the lists; read without.
inline void set_dirty(GConf* conf, int dirty) {
  std::atomic_ref(conf->dirty).store(dirty, std::memory_order_relaxed);
}
inline bool is_dirty(GConf* conf) {
  return std::atomic_ref(conf->dirty).load(std::memory_order_relaxed) != 0;
}

// What the file held when this conf last loaded or wrote it.
FileContent file_content(const GConf* conf);
void set_file_content(GConf* conf, const FileContent& content);
void set_file_text(GConf* conf, const char* text, size_t size);

// Serialises saves and reloads of the file, while other threads may use the conf. Null if
// the conf is no longer the library's own.
pthread_mutex_t* file_mutex(GConf* conf);

GConfSection* find_section(const GConf* conf, std::string_view name);
GConfEntry* find_entry(const GConfSection* section, std::string_view key);

// The stored value; null when there is none or it is empty.
const char* find_value(const GConf* conf, const char* section, const char* key);

// These fill a conf that no program has seen, so its lists are as the library left them.
// `key` and `value` are trimmed.
GConfSection* load_section(GConf* conf, std::string_view name);  // finds or appends it
bool load_entry(GConfSection* section, std::string_view key, std::string_view value);

enum class Stored { kNoMemory, kSame, kChanged };

// Stores a trimmed copy of `value`, unless the stored text equals the untrimmed one.
// Appends missing sections and keys. If the replaced value is a block of its own, hands it
// over in `old_value`.
Stored store(GConf* conf, const char* section, std::string_view key, const char* value,
             char** old_value);

void remove_section(GConf* conf, GConfSection* section);
void remove_entry(GConfSection* section, GConfEntry* entry);

// The same in two steps, for atomic changes: first everything that needs memory, then
// everything that cannot fail.

// Create an unlinked node with a new record; null when memory is exhausted. No record of
// the list has the name yet; key and value are trimmed.
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

// Append to a list that programs may have seen and changed.
void append_section(GConf* conf, GList* node);
void append_entry(GConfSection* section, GList* node);

// Gives an entry a trimmed value, a block from malloc(), and takes ownership of it. If the
// old value is a block of its own, returns it for the caller to free; otherwise null.
char* exchange_value(GConfEntry* entry, char* value);

}  // namespace groundwork

#endif
