// Operations on a hash table against a model of its rule of placement: which slot each
// entry is in, and which of two copies of a key an operation meets. The destroy function
// may use the table, as the input says; the model's then does the same. Hash and equality
// functions may use it, too: there is no model for that, but the table must stay
// consistent.
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
#include "tests/containers/hash_front.h"

namespace {

using Pair = std::pair<void*, void*>;

class Model {
 public:
  using Destroy = void (*)(void* key, void* value);
  struct Slot {
    void* key = nullptr;
    void* value = nullptr;  // null in an empty slot only
    unsigned entry = 0;
    bool is_leaving = false;  // its destroy function was called
  };
  Model(uint32_t size, GHashFunc hash_func, GEqualFunc equal_func, Destroy destroy)
      : slots_(size), hash_(hash_func), equal_(equal_func), destroy_(destroy) {}

  int insert(void* key, void* value) {
    size_t slot = home(key);
    while (slots_[slot].value != nullptr && !matches(slot, key))
      slot = (slot + 1) % slots_.size();
    if (slots_[slot].value != nullptr) {
      slots_[slot].key = key;
      slots_[slot].value = value;
      return 0;
    }
    if (insertions_left_ == 0) return -1;
    --insertions_left_;
    if (count_ == slots_.size() - 1) grow();
    place({key, value, next_entry_++, false});
    ++count_;
    return 0;
  }
  void* find(const void* key) const {
    const size_t slot = look_up(key);
    return slot != slots_.size() ? slots_[slot].value : nullptr;
  }
  int remove(const void* key) {
    const size_t slot = look_up(key);
    if (slot == slots_.size()) return -1;
    remove_slot(slot);
    return 0;
  }
  void free() {
    insertions_left_ = count_;
    while (count_ != 0) {
      for (size_t slot = 0; slot < slots_.size(); ++slot) {
        if (slots_[slot].value != nullptr) remove_slot(slot);
      }
    }
  }

  const std::vector<Slot>& slots() const { return slots_; }
  uint32_t count() const { return count_; }

 private:
  size_t home(const void* key) const { return hash_(key) % slots_.size(); }
  bool matches(size_t slot, const void* key) const {
    return equal_ != nullptr ? equal_(slots_[slot].key, key) != 0 : slots_[slot].key == key;
  }
  size_t look_up(const void* key) const {
    for (size_t step = 0; step < slots_.size(); ++step) {
      const size_t slot = (home(key) + step) % slots_.size();
      if (slots_[slot].value != nullptr && matches(slot, key)) return slot;
    }
    return slots_.size();
  }
  void remove_slot(size_t slot) {
    if (!slots_[slot].is_leaving && destroy_ != nullptr) {
      slots_[slot].is_leaving = true;
      const unsigned entry = slots_[slot].entry;
      destroy_(slots_[slot].key, slots_[slot].value);
      slot = 0;
      while (slot < slots_.size() &&
             (slots_[slot].value == nullptr || slots_[slot].entry != entry)) {
        ++slot;
      }
      if (slot == slots_.size()) return;  // the function removed it itself
    }
    slots_[slot] = {};
    --count_;
  }
  void place(const Slot& content) {
    size_t slot = home(content.key);
    while (slots_[slot].value != nullptr) slot = (slot + 1) % slots_.size();
    slots_[slot] = content;
  }
  void grow() {
    std::vector<Slot> old_slots(slots_.size() * 2);
    old_slots.swap(slots_);
    for (const Slot& slot : old_slots) {
      if (slot.value != nullptr) place(slot);
    }
  }

  std::vector<Slot> slots_;
  uint32_t count_ = 0;
  uint32_t insertions_left_ = UINT32_MAX;
  unsigned next_entry_ = 0;
  GHashFunc hash_;
  GEqualFunc equal_;
  Destroy destroy_;
};

// --- Keys: 256 of each kind, many of which share a hash or a home slot. Texts exist twice,
// so that equal keys need not be the same pointer.

// Called by the functions below when they are the table's, not the model's.
void (*from_key_function)() = nullptr;

uint32_t hash_of_few(const void* key) {
  if (from_key_function != nullptr) from_key_function();
  return static_cast<const unsigned char*>(key)[0] & 7U;
}

int equal_but_for_case(const void* stored, const void* probe) {
  if (from_key_function != nullptr) from_key_function();
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
  std::array<std::array<int32_t, 256>, 2> ints{};
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
uint32_t text_hash(const void* key) {
  uint32_t hash = 0;
  for (const auto* c = static_cast<const signed char*>(key); *c != 0; ++c) {
    hash = hash * 31 + static_cast<uint32_t>(*c);
  }
  return hash;
}
int same_text(const void* a, const void* b) {
  return std::string(static_cast<const char*>(a)) == static_cast<const char*>(b);
}
uint32_t number_at(const void* key) {
  return static_cast<uint32_t>(*static_cast<const int32_t*>(key));
}
int same_number(const void* a, const void* b) {
  return number_at(a) == number_at(b);
}
uint32_t address(const void* key) {
  return reinterpret_cast<uintptr_t>(key);
}

constexpr KeyFunctions kModelFunctions[kKinds] = {
    {text_hash, same_text}, {number_at, same_number}, {address, nullptr},
    {text_hash, nullptr},   {hash_of_few, nullptr},   {hash_of_few, equal_but_for_case}};

// --- What the functions do.

enum Reentry { kNone, kDestroyFunction, kAllFunctions, kReentries };

struct Operation {
  uint8_t code;
  void* key;
  void* value;
  void* result;
};
struct Destruction {
  Pair pair;
  std::vector<Operation> operations;  // that the destroy function made
};

// The run under way.
struct Run {
  Keys* keys;
  fuzz::Input* input;
  Kind kind;
  Reentry reentry;
  GHash* hash;
  Model* model;
  uintptr_t next_value;
  unsigned depth;
  std::vector<Destruction> destructions;  // of the table, in order of the calls
  size_t replayed;                        // by the model
};
Run run;

// Numbers as results, so that all can be compared.
void* as_result(int result) {
  return reinterpret_cast<void*>(static_cast<intptr_t>(result));
}

Operation operation_from_input() {
  const uint8_t code = run.input->byte();
  void* const key = key_of(*run.keys, run.kind, code >> 4 & 1, run.input->byte());
  // Values are numbers that count up, so that no two are the same.
  return {code, key, reinterpret_cast<void*>(run.next_value++), nullptr};
}

void* perform(const Operation& operation) {
  switch (operation.code % 3) {
    case 0:
      return as_result(g_hash_insert(run.hash, operation.key, operation.value));
    case 1:
      return g_hash_find(run.hash, operation.key);
    default:
      return as_result(g_hash_remove(run.hash, operation.key));
  }
}

void* perform_on_model(const Operation& operation) {
  switch (operation.code % 3) {
    case 0:
      return as_result(run.model->insert(operation.key, operation.value));
    case 1:
      return run.model->find(operation.key);
    default:
      return as_result(run.model->remove(operation.key));
  }
}

void destroy(void* key, void* value) {
  const size_t index = run.destructions.size();
  run.destructions.push_back({{key, value}, {}});
  if (run.reentry == kNone || run.depth >= 8) return;
  ++run.depth;
  for (int operations = run.input->byte() % 4; operations > 0; --operations) {
    Operation operation = operation_from_input();
    const size_t at = run.destructions[index].operations.size();
    run.destructions[index].operations.push_back(operation);
    run.destructions[index].operations[at].result = perform(operation);
  }
  --run.depth;
}

void destroy_in_model(void* key, void* value) {
  REQUIRE(run.replayed < run.destructions.size());
  const Destruction& destruction = run.destructions[run.replayed++];
  REQUIRE(destruction.pair == Pair(key, value));
  for (const Operation& operation : destruction.operations) {
    REQUIRE_EQUAL(perform_on_model(operation), operation.result);
  }
}

void reenter() {
  if (run.depth >= 3 || run.input->empty()) return;
  ++run.depth;
  if (const Operation operation = operation_from_input(); operation.code % 4 != 3) {
    perform(operation);
  }
  --run.depth;
}

void compare(const GHash* hash, const Model& model) {
  const test::HashTable& table = test::table_of(hash);
  REQUIRE_EQUAL(table.size, model.slots().size());
  REQUIRE_EQUAL(table.count, model.count());
  for (size_t i = 0; i < table.size; ++i) {
    const test::HashEntry* const entry = table.slots[i];
    const Model::Slot& expected = model.slots()[i];
    REQUIRE_EQUAL(entry != nullptr ? entry->key : nullptr, expected.key);
    REQUIRE_EQUAL(entry != nullptr ? entry->value : nullptr, expected.value);
  }
}

// What holds of any table: the count, and that each key is found.
void check(GHash* hash) {
  const test::HashTable& table = test::table_of(hash);
  uint32_t count = 0;
  for (size_t i = 0; i < table.size; ++i) {
    const test::HashEntry* const entry = table.slots[i];
    if (entry == nullptr) continue;
    ++count;
    REQUIRE(g_hash_find(hash, entry->key) != nullptr);
  }
  REQUIRE_EQUAL(table.count, count);
  REQUIRE(count < table.size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Keys keys;
  constexpr uint32_t kSizes[] = {1, 2, 3, 4, 5, 7, 8, 12, 16, 31, 32, 33, 64, 100};
  fuzz::Input input(data, size);
  const uint8_t first = input.byte();
  const auto kind = static_cast<Kind>(first % kKinds);
  const auto reentry = static_cast<Reentry>(first / kKinds % kReentries);
  const uint8_t options = input.byte();
  const uint32_t slots = kSizes[(options & 0x7f) % std::size(kSizes)];
  const bool destroys = (options & 0x80) != 0;

  GHash* const hash = g_hash_new(slots, kFunctions[kind].hash, kFunctions[kind].equal,
                                 destroys ? destroy : nullptr);
  REQUIRE(hash != nullptr);
  Model model(slots, kModelFunctions[kind].hash, kModelFunctions[kind].equal,
              destroys ? destroy_in_model : nullptr);
  run = {&keys, &input, kind, reentry, hash, &model, 1, 0, {}, 0};
  const bool has_model = reentry != kAllFunctions;
  const auto own_key_functions = has_model ? nullptr : reenter;
  while (!input.empty()) {
    const Operation operation = operation_from_input();
    from_key_function = own_key_functions;
    void* const result = perform(operation);
    from_key_function = nullptr;
    if (!has_model) {
      check(hash);
      continue;
    }
    REQUIRE_EQUAL(perform_on_model(operation), result);
    REQUIRE_EQUAL(g_hash_count(hash), model.count());
    REQUIRE_EQUAL(run.replayed, run.destructions.size());
    compare(hash, model);
  }
  from_key_function = own_key_functions;
  g_hash_free(hash);
  from_key_function = nullptr;
  if (!has_model) return 0;
  model.free();
  REQUIRE_EQUAL(run.replayed, run.destructions.size());
  return 0;
}
