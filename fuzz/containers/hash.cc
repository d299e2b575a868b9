// Operations on a hash table against a model of its rule of placement: which slot every
// entry lies in, and which of two copies of a key an operation meets.
//
// SPDX-License-Identifier: MIT

#include <groundwork/hash.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <strings.h>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

using Pair = std::pair<void*, void*>;

// The start of the table's record, and an entry's: callers know them.
struct Entry {
  void* key;
  void* value;
};
struct Table {
  Entry** slots;
  std::uint32_t size;
  std::uint32_t count;
};

class Model {
 public:
  Model(std::uint32_t size, GHashFunc hash_func, GEqualFunc equal_func)
      : slots_(size), hash_(hash_func), equal_(equal_func) {}

  int insert(void* key, void* value) {
    std::size_t slot = home(key);
    while (slots_[slot] != Pair{} && !matches(slot, key)) slot = (slot + 1) % slots_.size();
    if (slots_[slot] != Pair{}) {
      slots_[slot] = {key, value};
      return 0;
    }
    if (count_ == slots_.size() - 1) grow();
    place({key, value});
    ++count_;
    return 0;
  }
  void* find(const void* key) const {
    const std::size_t slot = look_up(key);
    return slot != slots_.size() ? slots_[slot].second : nullptr;
  }
  // The removed pair; an empty one when there was none.
  Pair remove(const void* key) {
    const std::size_t slot = look_up(key);
    if (slot == slots_.size()) return {};
    --count_;
    return std::exchange(slots_[slot], Pair{});
  }

  const std::vector<Pair>& slots() const { return slots_; }
  std::uint32_t count() const { return count_; }

 private:
  std::size_t home(const void* key) const { return hash_(key) % slots_.size(); }
  bool matches(std::size_t slot, const void* key) const {
    return equal_ != nullptr ? equal_(slots_[slot].first, key) != 0
                             : slots_[slot].first == key;
  }
  std::size_t look_up(const void* key) const {
    for (std::size_t step = 0; step < slots_.size(); ++step) {
      const std::size_t slot = (home(key) + step) % slots_.size();
      if (slots_[slot] != Pair{} && matches(slot, key)) return slot;
    }
    return slots_.size();
  }
  void place(Pair pair) {
    std::size_t slot = home(pair.first);
    while (slots_[slot] != Pair{}) slot = (slot + 1) % slots_.size();
    slots_[slot] = pair;
  }
  void grow() {
    std::vector<Pair> former(slots_.size() * 2);
    former.swap(slots_);
    for (const Pair& pair : former) {
      if (pair != Pair{}) place(pair);
    }
  }

  std::vector<Pair> slots_;
  std::uint32_t count_ = 0;
  GHashFunc hash_;
  GEqualFunc equal_;
};

// --- Keys: 256 of each kind, many of which share a hash or a home slot. Texts exist twice,
// so that equal keys need not be the same pointer.

std::uint32_t hash_of_few(const void* key) {
  return static_cast<const unsigned char*>(key)[0] & 7U;
}

int equal_but_for_case(const void* stored, const void* probe) {
  return strcasecmp(static_cast<const char*>(stored), static_cast<const char*>(probe)) == 0;
}

std::string text_of(unsigned index) {
  // "Aa" and "BB" hash alike.
  static constexpr const char* kPieces[] = {"Aa", "BB", "\xff", "c"};
  std::string text;
  for (; index != 0; index /= 4) text += kPieces[index % 4];
  return text;
}

struct Keys {
  std::array<std::array<std::array<char, 12>, 256>, 2> texts{};
  std::array<std::array<std::int32_t, 256>, 2> ints{};
  std::array<char, 4096> bytes{};  // for their addresses alone

  Keys() {
    for (unsigned i = 0; i < 256; ++i) {
      const int low = static_cast<int>(i & 63);
      const int number = i < 64 ? low : i < 128 ? low * 16 : i < 192 ? -low : low << 25;
      for (unsigned copy = 0; copy < 2; ++copy) {
        std::strcpy(texts[copy][i].data(), text_of(i).c_str());
        ints[copy][i] = number;
      }
    }
  }
};

enum Kind { kStrings, kInts, kPointers, kStringsByPointer, kFew, kFewWithoutCase, kKinds };

void* key_of(Keys& keys, Kind kind, unsigned copy, unsigned index) {
  switch (kind) {
    case kInts:
      return &keys.ints[copy][index];
    case kPointers:
      return &keys.bytes[index * (copy == 0 ? 1 : 16)];
    default:
      return keys.texts[copy][index].data();
  }
}

struct KeyFunctions {
  GHashFunc hash;
  GEqualFunc equal;
};

constexpr KeyFunctions kFunctions[kKinds] = {{g_hash_str, g_hash_str_equal},
                                             {g_hash_int, g_hash_int_equal},
                                             {nullptr, nullptr},
                                             {g_hash_str, nullptr},
                                             {hash_of_few, nullptr},
                                             {hash_of_few, equal_but_for_case}};

// The same for the model.
std::uint32_t text_hash(const void* key) {
  std::uint32_t hash = 0;
  for (const auto* c = static_cast<const signed char*>(key); *c != 0; ++c) {
    hash = hash * 31 + static_cast<std::uint32_t>(*c);
  }
  return hash;
}
int same_text(const void* a, const void* b) {
  return std::string(static_cast<const char*>(a)) == static_cast<const char*>(b);
}
std::uint32_t number_at(const void* key) {
  return static_cast<std::uint32_t>(*static_cast<const std::int32_t*>(key));
}
int same_number(const void* a, const void* b) {
  return number_at(a) == number_at(b);
}
std::uint32_t address(const void* key) {
  return reinterpret_cast<std::uintptr_t>(key);
}

constexpr KeyFunctions kModelFunctions[kKinds] = {
    {text_hash, same_text}, {number_at, same_number}, {address, nullptr},
    {text_hash, nullptr},   {hash_of_few, nullptr},   {hash_of_few, equal_but_for_case}};

std::vector<Pair> destroyed;

void note_destroyed(void* key, void* value) {
  destroyed.emplace_back(key, value);
}

void compare(const GHash* hash, const Model& model) {
  Table table;
  std::memcpy(&table, hash, sizeof table);
  REQUIRE_EQUAL(table.size, model.slots().size());
  REQUIRE_EQUAL(table.count, model.count());
  for (std::size_t i = 0; i < table.size; ++i) {
    const Entry* const entry = table.slots[i];
    const Pair& expected = model.slots()[i];
    REQUIRE_EQUAL(entry != nullptr ? entry->key : nullptr, expected.first);
    REQUIRE_EQUAL(entry != nullptr ? entry->value : nullptr, expected.second);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Keys keys;
  constexpr std::uint32_t kSizes[] = {1, 2, 3, 4, 5, 7, 8, 12, 16, 31, 32, 33, 64, 100};
  fuzz::Input input(data, size);
  const auto kind = static_cast<Kind>(input.byte() % kKinds);
  const std::uint8_t options = input.byte();
  const std::uint32_t slots = kSizes[(options & 0x7f) % std::size(kSizes)];
  const bool destroys = (options & 0x80) != 0;

  GHash* const hash = g_hash_new(slots, kFunctions[kind].hash, kFunctions[kind].equal,
                                 destroys ? note_destroyed : nullptr);
  REQUIRE(hash != nullptr);
  Model model(slots, kModelFunctions[kind].hash, kModelFunctions[kind].equal);
  destroyed.clear();
  std::uintptr_t next_value = 1;
  std::vector<Pair> expected;
  while (!input.empty()) {
    const std::uint8_t operation = input.byte();
    void* const key = key_of(keys, kind, operation >> 4 & 1, input.byte());
    switch (operation % 3) {
      case 0: {
        // Values are numbers that count up, so that no two are the same.
        void* const value = reinterpret_cast<void*>(next_value++);
        REQUIRE_EQUAL(g_hash_insert(hash, key, value), model.insert(key, value));
        break;
      }
      case 1:
        REQUIRE_EQUAL(g_hash_find(hash, key), model.find(key));
        break;
      default: {
        const Pair removed = model.remove(key);
        REQUIRE_EQUAL(g_hash_remove(hash, key), removed != Pair{} ? 0 : -1);
        if (removed != Pair{} && destroys) expected.push_back(removed);
        break;
      }
    }
    REQUIRE_EQUAL(g_hash_count(hash), model.count());
    compare(hash, model);
  }
  for (const Pair& pair : model.slots()) {
    if (pair != Pair{} && destroys) expected.push_back(pair);
  }
  g_hash_free(hash);
  REQUIRE(destroyed == expected);
  return 0;
}
