// The records of an open configuration and what may be done to them. Nothing here locks or
// logs; every function leaves all as it was when memory is exhausted.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_MODEL_H
#define GROUNDWORK_CONF_MODEL_H

#include <groundwork/conf.h>

#include <string_view>

namespace groundwork {

// Source name of the whole store in log lines.
inline constexpr char kSource[] = "g_conf";

// An empty conf for a file, not dirty; null when memory is exhausted.
GConf* new_conf(const char* filename);
void free_conf(GConf* conf);

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

}  // namespace groundwork

#endif
