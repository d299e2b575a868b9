// The configuration store against what programs put together for themselves, inih's parser
// filling tables of uthash, and against iniparser, whose cost of a key grows with the file.
// The peers' names keep their case; ours are found in any.
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <ini.h>
#include <iniparser.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/job.h"
#include "support/temporary_file.h"
#include "uthash.h"

using namespace groundwork::bench;

namespace {

struct Name {
  std::string section;
  std::string key;
};

// Section and key of each line, all in one section when `per_section` is 0.
std::vector<Name> names_of(size_t count, size_t per_section) {
  std::vector<Name> names;
  for (size_t i = 0; i < count; ++i) {
    const size_t section = per_section == 0 ? 0 : i / per_section;
    names.push_back({"section" + std::to_string(section), "key." + std::to_string(i)});
  }
  return names;
}

std::string text_of(const std::vector<Name>& names) {
  std::string text;
  const std::string* section = nullptr;
  for (const Name& name : names) {
    if (section == nullptr || *section != name.section) text += "[" + name.section + "]\n";
    section = &name.section;
    text += name.key + " = value of " + name.key + "\n";
  }
  return text;
}

// --- stores: each opens a file and has get() and set(); some have write() ---

class Ours {
 public:
  explicit Ours(const char* path) : conf_(g_conf_open(path)) {}
  ~Ours() { g_conf_close(conf_); }

  const char* get(const Name& name) const {
    return g_conf_read_string(conf_, name.section.c_str(), name.key.c_str(), nullptr);
  }
  void set(const Name& name, const char* value) {
    g_conf_write_string(conf_, name.section.c_str(), name.key.c_str(), value);
  }
  void write() { g_conf_sync(conf_); }

 private:
  GConf* conf_;
};

class InihUthash {
 public:
  explicit InihUthash(const char* path) : path_(path) { ini_parse(path, take_line, this); }
  ~InihUthash() {
    Section* section;
    Section* next_section;
    HASH_ITER(hh, sections_, section, next_section) {
      Entry* entry;
      Entry* next_entry;
      HASH_ITER(hh, section->entries, entry, next_entry) {
        HASH_DEL(section->entries, entry);
        std::free(entry->key);
        std::free(entry->value);
        std::free(entry);
      }
      HASH_DEL(sections_, section);
      std::free(section->name);
      std::free(section);
    }
  }

  const char* get(const Name& name) const {
    const Entry* const entry = find(name.section.c_str(), name.key.c_str());
    return entry != nullptr ? entry->value : nullptr;
  }
  void set(const Name& name, const char* value) {
    store(name.section.c_str(), name.key.c_str(), value);
  }
  void write() {
    std::FILE* const file = std::fopen(path_, "w");
    for (const Section* section = sections_; section != nullptr;
         section = static_cast<Section*>(section->hh.next)) {
      std::fprintf(file, "[%s]\n", section->name);
      for (const Entry* entry = section->entries; entry != nullptr;
           entry = static_cast<Entry*>(entry->hh.next)) {
        std::fprintf(file, "%s=%s\n", entry->key, entry->value);
      }
      std::fprintf(file, "\n");
    }
    std::fclose(file);
  }

 private:
  struct Entry {
    char* key;
    char* value;
    UT_hash_handle hh;
  };
  struct Section {
    char* name;
    Entry* entries;
    UT_hash_handle hh;
  };

  static int take_line(void* self, const char* section, const char* key,
                       const char* value) {
    static_cast<InihUthash*>(self)->store(section, key, value);
    return 1;
  }

  Entry* find(const char* section_name, const char* key) const {
    Section* section = nullptr;
    HASH_FIND_STR(sections_, section_name, section);
    if (section == nullptr) return nullptr;
    Entry* entry = nullptr;
    HASH_FIND_STR(section->entries, key, entry);
    return entry;
  }

  // A key that comes again replaces the value.
  void store(const char* section_name, const char* key, const char* value) {
    Section* section = nullptr;
    HASH_FIND_STR(sections_, section_name, section);
    if (section == nullptr) {
      section = static_cast<Section*>(std::calloc(1, sizeof(Section)));
      section->name = strdup(section_name);
      HASH_ADD_KEYPTR(hh, sections_, section->name, std::strlen(section->name), section);
    }
    Entry* entry = nullptr;
    HASH_FIND_STR(section->entries, key, entry);
    if (entry == nullptr) {
      entry = static_cast<Entry*>(std::calloc(1, sizeof(Entry)));
      entry->key = strdup(key);
      entry->value = strdup(value);
      HASH_ADD_KEYPTR(hh, section->entries, entry->key, std::strlen(entry->key), entry);
    } else if (std::strcmp(entry->value, value) != 0) {
      std::free(entry->value);
      entry->value = strdup(value);
    }
  }

  const char* path_;
  Section* sections_ = nullptr;
};

// Its names are sections and keys joined by a colon, which the caller makes.
class Iniparser {
 public:
  explicit Iniparser(const char* path) : dictionary_(iniparser_load(path)) {}
  ~Iniparser() { iniparser_freedict(dictionary_); }

  const char* get(const Name& name) const {
    return iniparser_getstring(dictionary_, joined(name).text, nullptr);
  }
  void set(const Name& name, const char* value) {
    iniparser_set(dictionary_, joined(name).text, value);
  }

 private:
  struct Joined {
    char text[128];
  };
  static Joined joined(const Name& name) {
    Joined result;
    std::snprintf(result.text, sizeof result.text, "%s:%s", name.section.c_str(),
                  name.key.c_str());
    return result;
  }

  dictionary* dictionary_;
};

template <typename Store>
uint32_t digest_of(const Store& store, const std::vector<Name>& names) {
  Digest digest;
  for (const Name& name : names) {
    const char* const value = store.get(name);
    digest.add(value != nullptr ? value : "(none)");
  }
  return digest.value();
}

// --- jobs ---

// Small files are opened several times in an iteration; freeing is not measured.
template <typename Store>
void open(State& state, size_t per_section) {
  const std::vector<Name> names =
      names_of(static_cast<size_t>(state.range(0)), per_section);
  const TemporaryFile file(text_of(names));
  const size_t repeats = std::max<size_t>(1, 2000 / names.size());
  std::vector<std::unique_ptr<Store>> stores(repeats);
  for (auto _ : state) {
    for (auto& store : stores) store = std::make_unique<Store>(file.path());
    state.PauseTiming();
    for (auto& store : stores) store.reset();
    state.ResumeTiming();
  }
  report(state, static_cast<double>(names.size() * repeats),
         digest_of(Store(file.path()), names));
}

template <typename Store>
void read(State& state, bool present, size_t per_section = 0) {
  std::vector<Name> names = names_of(static_cast<size_t>(state.range(0)), per_section);
  const TemporaryFile file(text_of(names));
  const Store store(file.path());
  std::shuffle(names.begin(), names.end(), std::mt19937(1));
  if (!present) {
    for (Name& name : names) name.key.replace(0, 3, "yek");
  }
  for (auto _ : state) {
    for (const Name& name : names) DoNotOptimize(store.get(name));
  }
  report(state, static_cast<double>(names.size()), digest_of(store, names));
}

// Every value is another than before.
template <typename Store>
void change(State& state) {
  std::vector<Name> names = names_of(static_cast<size_t>(state.range(0)), 0);
  const TemporaryFile file(text_of(names));
  Store store(file.path());
  std::shuffle(names.begin(), names.end(), std::mt19937(1));
  bool odd = false;
  for (auto _ : state) {
    odd = !odd;
    for (const Name& name : names) store.set(name, odd ? "10.0.0.1" : "192.168.0.100");
  }
  for (const Name& name : names) store.set(name, "10.0.0.2");
  report(state, static_cast<double>(names.size()), digest_of(store, names));
}

// One value changes, and the file is written.
template <typename Store>
void sync(State& state) {
  const std::vector<Name> names = names_of(static_cast<size_t>(state.range(0)), 0);
  const TemporaryFile file(text_of(names));
  Store store(file.path());
  bool odd = false;
  for (auto _ : state) {
    odd = !odd;
    store.set(names.back(), odd ? "10.0.0.1" : "192.168.0.100");
    store.write();
  }
  store.set(names.back(), "10.0.0.2");
  store.write();
  Digest digest;
  digest.add(file.text());
  report(state, static_cast<double>(names.size()), digest.value());
}

template <typename Store>
void register_store(const char* who, int largest) {
  for (const int size : {100, 1000, 10000, 100000}) {
    if (size > largest) break;
    job("conf.open.one", who, [](State& state) { open<Store>(state, 0); })->Arg(size);
    job("conf.open.tens", who, [](State& state) { open<Store>(state, 10); })->Arg(size);
    job("conf.hit", who, [](State& state) { read<Store>(state, true); })->Arg(size);
    job("conf.hit.tens", who, [](State& state) {
      read<Store>(state, true, 10);
    })->Arg(size);
    job("conf.miss", who, [](State& state) { read<Store>(state, false); })->Arg(size);
    job("conf.write", who, change<Store>)->Arg(size);
  }
}

}  // namespace

void groundwork::bench::register_jobs() {
  register_store<Ours>("ours", 100000);
  register_store<InihUthash>("inih+uthash", 100000);
  register_store<Iniparser>("iniparser", 1000);
  for (const int size : {100, 10000}) {
    job("conf.sync", "ours", sync<Ours>)->Arg(size);
    job("conf.sync", "fprintf", sync<InihUthash>)->Arg(size);
  }
}
