// The records of a conf as the library creates them. One block holds the public record, a
// hidden part, and the record's texts: its name and, for an entry, its first value. So
// loading takes two blocks per key, the record and its node, and the text of a key is next
// to the pointers to it.
//
// Not every record in the lists was created here: programs may add their own, of which only
// the public part may be read. And a program that replaces the strings of a record, which
// it must not, should at worst leak memory. So the public part must show what a record is:
//
//   - A text inside a record's block begins at an odd address. A block from the heap never
//     does, so nothing at an odd address is freed by itself.
//   - A record is the library's own as long as its name is the first text of its block. One
//     whose name was replaced is treated as the program's own from then on; its hidden part
//     can no longer be used, and the index of its list leaks.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_RECORD_H
#define GROUNDWORK_CONF_RECORD_H

#include <groundwork/conf.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <pthread.h>

#include "conf/fingerprint.h"
#include "conf/name_index.h"

namespace groundwork {

// The offset of the texts in a block with a record of this size.
constexpr size_t text_offset(size_t record_size) {
  return record_size | 1;
}

// In both kinds of list records, after the two pointers of the public part.
struct ListLink {
  GList* node;  // the node that holds the record, as far as the library knows
  size_t name_length;
};

struct Entry {
  GConfEntry public_part;
  ListLink link;
};

struct Section {
  GConfSection public_part;
  ListLink link;
  NameIndex entries{text_offset(sizeof(Entry))};
};

struct Conf {
  GConf public_part;
  NameIndex sections{text_offset(sizeof(Section))};
  FileContent file_content = {};
  // Held while the file is saved or reloaded, so that file_content describes it. Locked
  // before the mutex of the public part.
  pthread_mutex_t file_mutex = PTHREAD_MUTEX_INITIALIZER;
};

static_assert(offsetof(GConfEntry, key) == 0 && offsetof(GConfSection, name) == 0 &&
              offsetof(GConf, filename) == 0);
static_assert(offsetof(Entry, link) == offsetof(Section, link));

// The name of any record.
inline const char* name_of(const void* record) {
  return *static_cast<const char* const*>(record);
}

// Returns whether a record is the library's own; `texts` is the offset of the texts of its
// kind.
inline bool is_own(const void* record, size_t texts) {
  // As numbers: a pointer past the end of a program's own record would be invalid.
  return reinterpret_cast<uintptr_t>(name_of(record)) ==
         reinterpret_cast<uintptr_t>(record) + texts;
}

// Returns whether a text is part of a record's block, and so must not be freed.
inline bool shares_block(const char* text) {
  return (reinterpret_cast<uintptr_t>(text) & 1) != 0;
}

// Returns the whole record of a public part; null if the record is a program's own.
template <typename Record>
Record* container_of(const decltype(Record::public_part)* public_part) {
  if (!is_own(public_part, text_offset(sizeof(Record)))) return nullptr;
  return reinterpret_cast<Record*>(const_cast<decltype(Record::public_part)*>(public_part));
}

// The list link of a record of the library's own, of either kind.
inline ListLink& link_of(void* record) {
  return *reinterpret_cast<ListLink*>(static_cast<char*>(record) + offsetof(Entry, link));
}

inline std::string_view own_name_of(const void* record) {
  return {name_of(record), link_of(const_cast<void*>(record)).name_length};
}

// These return null when memory is exhausted. The texts may be of any size.
Entry* new_entry(std::string_view key, std::string_view value);
Section* new_section(std::string_view name);
Conf* new_conf_record(std::string_view filename);  // sets only the file name

// These free any record, with everything that it owns.
void free_entry(GConfEntry* entry);
void free_section(GConfSection* section);
void free_conf(GConf* conf);

}  // namespace groundwork

#endif
