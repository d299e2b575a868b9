// The hash table against uthash and std::unordered_map. Keys are looked for by copies of
// their own, in another order than they were stored in.
//
// SPDX-License-Identifier: MIT

#include <groundwork/hash.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "support/job.h"
#include "uthash.h"

using namespace groundwork::bench;

namespace {

// --- keys ---

// A key type says what a key of each table looks like, and how uthash, whose macros want
// names of fields, adds and finds one.
struct Strings {
  static constexpr const char* kName = "string";
  using Key = std::string;   // as the benchmark owns it
  using View = const char*;  // as the tables of C programs keep it
  using MapKey = std::string_view;

  static Key make(uint32_t number) { return "interface." + std::to_string(number); }
  static View view(const Key& key) { return key.c_str(); }
  static MapKey map_key(const Key& key) { return key; }
  static const void* pointer(const Key& key) { return key.c_str(); }
  static GHash* table() { return g_hash_new(16, g_hash_str, g_hash_str_equal, nullptr); }
};

struct Ints {
  static constexpr const char* kName = "int";
  using Key = int32_t;
  using View = int32_t;
  using MapKey = int32_t;

  // Numbers without a pattern, each once.
  static Key make(uint32_t number) {
    number = (number ^ number >> 16) * 0x85ebca6bU;
    number = (number ^ number >> 13) * 0xc2b2ae35U;
    return static_cast<Key>(number ^ number >> 16);
  }
  static View view(const Key& key) { return key; }
  static MapKey map_key(const Key& key) { return key; }
  static const void* pointer(const Key& key) { return &key; }
  static GHash* table() { return g_hash_new(16, g_hash_int, g_hash_int_equal, nullptr); }
};

template <typename Type>
struct KeySet {
  std::vector<typename Type::Key> stored;
  std::vector<typename Type::Key> present;  // the same, in another order
  std::vector<typename Type::Key> absent;

  explicit KeySet(size_t count) {
    for (uint32_t i = 0; i < count; ++i) stored.push_back(Type::make(i));
    present = stored;
    std::shuffle(present.begin(), present.end(), std::mt19937(1));
    for (uint32_t i = 0; i < count; ++i) {
      absent.push_back(Type::make(static_cast<uint32_t>(count) + i));
    }
  }
};

// --- tables: each has insert(key, value), which replaces, and find(key), 0 when absent ---

template <typename Type>
class Ours {
 public:
  ~Ours() { g_hash_free(table_); }

  void insert(const typename Type::Key& key, uintptr_t value) {
    g_hash_insert(table_, const_cast<void*>(Type::pointer(key)),
                  reinterpret_cast<void*>(value));
  }
  uintptr_t find(const typename Type::Key& key) const {
    return reinterpret_cast<uintptr_t>(g_hash_find(table_, Type::pointer(key)));
  }
  bool remove(const typename Type::Key& key) {
    return g_hash_remove(table_, Type::pointer(key)) == 0;
  }

 private:
  GHash* table_ = Type::table();
};

template <typename Type>
class Uthash {
 public:
  ~Uthash() {
    for (Entry* entry = entries_; entry != nullptr;) {
      Entry* const next = static_cast<Entry*>(entry->hh.next);
      HASH_DEL(entries_, entry);
      std::free(entry);
      entry = next;
    }
  }

  // As its manual has it: keys are unique, so look before adding.
  void insert(const typename Type::Key& key, uintptr_t value) {
    Entry* entry = entry_of(key);
    if (entry == nullptr) {
      add(key, value);
    } else {
      entry->value = value;
    }
  }
  void add(const typename Type::Key& key, uintptr_t value) {
    Entry* const entry = static_cast<Entry*>(std::malloc(sizeof(Entry)));
    entry->key = Type::view(key);
    entry->value = value;
    if constexpr (std::is_same_v<Type, Strings>) {
      HASH_ADD_KEYPTR(hh, entries_, entry->key, std::strlen(entry->key), entry);
    } else {
      HASH_ADD_INT(entries_, key, entry);
    }
  }
  uintptr_t find(const typename Type::Key& key) const {
    const Entry* const entry = entry_of(key);
    return entry != nullptr ? entry->value : 0;
  }
  bool remove(const typename Type::Key& key) {
    Entry* const entry = entry_of(key);
    if (entry == nullptr) return false;
    HASH_DEL(entries_, entry);
    std::free(entry);
    return true;
  }

 private:
  struct Entry {
    typename Type::View key;
    uintptr_t value;
    UT_hash_handle hh;
  };

  Entry* entry_of(const typename Type::Key& key) const {
    Entry* entry = nullptr;
    if constexpr (std::is_same_v<Type, Strings>) {
      HASH_FIND_STR(entries_, key.c_str(), entry);
    } else {
      HASH_FIND_INT(entries_, &key, entry);
    }
    return entry;
  }

  Entry* entries_ = nullptr;
};

// For callers who know that the key is new.
template <typename Type>
class UthashUnchecked : public Uthash<Type> {
 public:
  void insert(const typename Type::Key& key, uintptr_t value) { this->add(key, value); }
};

template <typename Type>
class UnorderedMap {
 public:
  void insert(const typename Type::Key& key, uintptr_t value) {
    map_.insert_or_assign(Type::map_key(key), value);
  }
  uintptr_t find(const typename Type::Key& key) const {
    const auto found = map_.find(Type::map_key(key));
    return found != map_.end() ? found->second : 0;
  }
  bool remove(const typename Type::Key& key) { return map_.erase(Type::map_key(key)) == 1; }

 private:
  std::unordered_map<typename Type::MapKey, uintptr_t> map_;
};

// --- jobs ---

// Small tables are filled several times in an iteration, so that the clock's own cost does
// not show; freeing them is not measured.
template <typename Type, typename Table>
void insert(State& state) {
  const KeySet<Type> keys(static_cast<size_t>(state.range(0)));
  const size_t repeats = std::max<size_t>(1, 10000 / keys.stored.size());
  uintptr_t sum = 0;
  for (auto _ : state) {
    std::vector<Table> tables(repeats);
    for (Table& table : tables) {
      uintptr_t value = 0;
      for (const auto& key : keys.stored) table.insert(key, ++value);
    }
    state.PauseTiming();
    sum = 0;
    for (const auto& key : keys.present) sum = sum * 3 + tables.back().find(key);
    tables.clear();
    state.ResumeTiming();
  }
  report(state, static_cast<double>(keys.stored.size() * repeats),
         static_cast<uint32_t>(sum));
}

// Removes every key; filling the tables is not measured.
template <typename Type, typename Table>
void remove_all(State& state) {
  const KeySet<Type> keys(static_cast<size_t>(state.range(0)));
  const size_t repeats = std::max<size_t>(1, 10000 / keys.stored.size());
  uint32_t removed = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<Table> tables(repeats);
    for (Table& table : tables) {
      uintptr_t value = 0;
      for (const auto& key : keys.stored) table.insert(key, ++value);
    }
    removed = 0;
    state.ResumeTiming();
    for (Table& table : tables) {
      for (const auto& key : keys.present) removed += table.remove(key);
    }
    state.PauseTiming();
    tables.clear();
    state.ResumeTiming();
  }
  report(state, static_cast<double>(keys.stored.size() * repeats), removed);
}

template <typename Type, typename Table>
void find(State& state, bool present) {
  const KeySet<Type> keys(static_cast<size_t>(state.range(0)));
  Table table;
  uintptr_t value = 0;
  for (const auto& key : keys.stored) table.insert(key, ++value);
  const auto& wanted = present ? keys.present : keys.absent;
  uintptr_t sum = 0;
  for (auto _ : state) {
    sum = 0;
    for (const auto& key : wanted) sum = sum * 3 + table.find(key);
    DoNotOptimize(sum);
  }
  report(state, static_cast<double>(wanted.size()), static_cast<uint32_t>(sum));
}

void sizes(benchmark::internal::Benchmark* job) {
  for (const int size : {100, 1000, 10000, 100000, 1000000}) job->Arg(size);
}

template <typename Type, typename Table>
void register_table(const char* who) {
  const std::string name = std::string("hash.") + Type::kName;
  sizes(job(name + ".insert", who, insert<Type, Table>)->Arg(10));
  sizes(job(name + ".remove", who, remove_all<Type, Table>));
  sizes(job(name + ".hit", who, [](State& state) { find<Type, Table>(state, true); }));
  sizes(job(name + ".miss", who, [](State& state) { find<Type, Table>(state, false); }));
}

template <typename Type>
void register_type() {
  register_table<Type, Ours<Type>>("ours");
  register_table<Type, Uthash<Type>>("uthash");
  register_table<Type, UnorderedMap<Type>>("std::unordered_map");
  sizes(job(std::string("hash.") + Type::kName + ".insert", "uthash, unchecked",
            insert<Type, UthashUnchecked<Type>>)
            ->Arg(10));
}

// --- a table with the caller's own functions, which asks about every entry ---

uint32_t own_hash(const void* key) {
  return g_hash_str(key);
}

int own_equal(const void* stored, const void* probe) {
  return std::strcmp(static_cast<const char*>(stored), static_cast<const char*>(probe)) ==
         0;
}

void own_miss_ours(State& state) {
  const KeySet<Strings> keys(static_cast<size_t>(state.range(0)));
  GHash* const table = g_hash_new(16, own_hash, own_equal, nullptr);
  for (const auto& key : keys.stored) {
    g_hash_insert(table, const_cast<char*>(key.c_str()), table);
  }
  const void* found = table;
  for (auto _ : state) {
    found = g_hash_find(table, keys.absent[0].c_str());
    DoNotOptimize(found);
  }
  g_hash_free(table);
  report(state, static_cast<double>(keys.stored.size()), found != nullptr);
}

// The calls alone, the keys in a row.
void own_miss_calls(State& state) {
  const KeySet<Strings> keys(static_cast<size_t>(state.range(0)));
  std::vector<const char*> stored;
  for (const auto& key : keys.stored) stored.push_back(key.c_str());
  GEqualFunc equal = own_equal;
  int found = 0;
  for (auto _ : state) {
    DoNotOptimize(equal);
    for (const char* const key : stored) found |= equal(key, keys.absent[0].c_str());
    DoNotOptimize(found);
  }
  report(state, static_cast<double>(keys.stored.size()), found != 0);
}

}  // namespace

void groundwork::bench::register_jobs() {
  register_type<Strings>();
  register_type<Ints>();
  for (const int size : {100, 1000, 10000}) {
    job("hash.own.miss", "ours", own_miss_ours)->Arg(size);
    job("hash.own.miss", "the calls alone", own_miss_calls)->Arg(size);
  }
}
