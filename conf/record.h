// The records of a conf as the library makes them. One block holds the public record, what
// only the library sees, and the record's texts: its name; for an entry also its first
// value. So loading costs two blocks a key, the record and its node, and the text of a key
// is next to the pointers to it.
//
// Not every record in the lists was made here: programs may add their own, of which nothing
// beyond the public part may be read. And a program that replaces the strings of a record,
// which it must not, should lose memory at worst. So what a record is must show in its
// public part:
//
//   - A text within a record's block begins at an odd address. A block from the heap never
//     does, so nothing at an odd address is freed by itself.
//   - A record is one of these as long as its name is the text at the beginning of its own
//     block's texts. One whose name was replaced counts as the program's own from then on;
//     what only the library saw of it is then out of reach, and the index of its list
//     leaks.
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

// Where the texts begin in a block with a record of that size.
constexpr size_t text_offset(size_t record_size) {
  return record_size | 1;
}

// In both kinds of records that lists hold, after the two pointers of the public part.
struct ListLink {
  GList* node;  // that holds the record, as far as the library knows
  size_t name_length;
};

struct Entry {
  GConfEntry shown;
  ListLink link;
};

struct Section {
  GConfSection shown;
  ListLink link;
  NameIndex entries{text_offset(sizeof(Entry))};
};

struct Conf {
  GConf shown;
  NameIndex sections{text_offset(sizeof(Section))};
  FileContent file_content = {};
  // Held while the file is saved or read anew, so that file_content says what it holds.
  // Taken before the mutex of the public part.
  pthread_mutex_t file_mutex = PTHREAD_MUTEX_INITIALIZER;
};

static_assert(offsetof(GConfEntry, key) == 0 && offsetof(GConfSection, name) == 0 &&
              offsetof(GConf, filename) == 0);
static_assert(offsetof(Entry, link) == offsetof(Section, link));

// The name of a record, of which nothing else is known.
inline const char* name_of(const void* record) {
  return *static_cast<const char* const*>(record);
}

// Whether a record is one of these, given where such a one has its texts.
inline bool is_own(const void* record, size_t texts) {
  // As numbers: no pointer may be made past the end of a program's own record.
  return reinterpret_cast<uintptr_t>(name_of(record)) ==
         reinterpret_cast<uintptr_t>(record) + texts;
}

// Whether a text is a part of a record's block, and so not to be freed.
inline bool shares_block(const char* text) {
  return (reinterpret_cast<uintptr_t>(text) & 1) != 0;
}

// From the public part to the whole; null for a record of a program's own.
template <typename Whole>
Whole* whole_of(const decltype(Whole::shown)* shown) {
  if (!is_own(shown, text_offset(sizeof(Whole)))) return nullptr;
  return reinterpret_cast<Whole*>(const_cast<decltype(Whole::shown)*>(shown));
}

// What links a record of the library's own, of either kind, with its list.
inline ListLink& link_of(void* record) {
  return *reinterpret_cast<ListLink*>(static_cast<char*>(record) + offsetof(Entry, link));
}

inline std::string_view own_name_of(void* record) {
  return {name_of(record), link_of(record).name_length};
}

// Each is null when memory is exhausted. The texts may be of any size.
Entry* new_entry(std::string_view key, std::string_view value);
Section* new_section(std::string_view name);
Conf* new_conf_record(std::string_view filename);  // with its file name only

// Any record, with all that belongs to it.
void free_entry(GConfEntry* entry);
void free_section(GConfSection* section);
void free_conf(GConf* conf);

}  // namespace groundwork

#endif
