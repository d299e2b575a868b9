// Hash, equality and destroy functions that use the table which calls them.
//
// SPDX-License-Identifier: MIT

#include <groundwork/hash.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "containers/hash_front.h"
#include "support/allocation_faults.h"

using test::AllocationFaults;
using test::table_of;
using Entry = test::HashEntry;
using Table = test::HashTable;

namespace {

void* number(uintptr_t value) {
  return reinterpret_cast<void*>(value);
}

using Pair = std::pair<void*, void*>;

// What the callbacks below do; each test sets its own.
std::function<void(void* key, void* value)> at_destroy;
std::function<void(const void* key)> at_hash;
std::function<void(const void* stored, const void* probe)> at_equal;
std::vector<Pair> destroyed;

void destroy(void* key, void* value) {
  destroyed.emplace_back(key, value);
  if (at_destroy) at_destroy(key, value);
}
// Few hashes, so that runs are long.
uint32_t own_hash(const void* key) {
  if (at_hash) at_hash(key);
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key)) % 5;
}
int own_equal(const void* stored, const void* probe) {
  if (at_equal) at_equal(stored, probe);
  return stored == probe ? 1 : 0;
}

// How a table searches: through its index, or by walking it.
struct Mode {
  const char* name;
  GHashFunc hash_func;
  GEqualFunc equal_func;
  uintptr_t (*key)(uintptr_t number);
};

std::array<int32_t, 4096> ints;
std::array<std::array<char, 8>, 4096> texts;

uintptr_t int_key(uintptr_t n) {
  ints[n] = static_cast<int32_t>(n);
  return reinterpret_cast<uintptr_t>(&ints[n]);
}
uintptr_t text_key(uintptr_t n) {
  // "Aa" and "BB" hash alike.
  const std::string text = (n % 2 == 0 ? "Aa" : "BB") + std::to_string(n / 2);
  text.copy(texts[n].data(), 7);
  return reinterpret_cast<uintptr_t>(texts[n].data());
}
uintptr_t same(uintptr_t n) {
  return n;
}

const Mode kModes[] = {
    {"indexed_pointers", nullptr, nullptr, same},
    {"indexed_ints", g_hash_int, g_hash_int_equal, int_key},
    {"indexed_strings", g_hash_str, g_hash_str_equal, text_key},
    {"walked", own_hash, own_equal, same},
    {"walked_without_equality", own_hash, nullptr, same},
};

class HashReentry : public ::testing::TestWithParam<Mode> {
 protected:
  void SetUp() override {
    at_destroy = nullptr;
    at_hash = nullptr;
    at_equal = nullptr;
    destroyed.clear();
  }
  void TearDown() override { SetUp(); }
  void make(unsigned size, uintptr_t entries) {
    hash = g_hash_new(size, GetParam().hash_func, GetParam().equal_func, destroy);
    ASSERT_NE(hash, nullptr);
    for (uintptr_t i = 0; i < entries; ++i) insert(i);
  }
  static void* key(uintptr_t n) { return number(GetParam().key(n)); }
  int insert(uintptr_t n) { return g_hash_insert(hash, key(n), number(n + 1)); }
  void* find(uintptr_t n) { return g_hash_find(hash, key(n)); }
  int remove(uintptr_t n) { return g_hash_remove(hash, key(n)); }

  GHash* hash = nullptr;
};
INSTANTIATE_TEST_SUITE_P(Modes, HashReentry, ::testing::ValuesIn(kModes),
                         [](const auto& mode) { return std::string(mode.param.name); });

// --- destroy functions ---

TEST_P(HashReentry, WhileATableIsFreedItIsOneThatIsEmptiedInTheOrderOfTheSlots) {
  constexpr uintptr_t kEntries = 100;
  make(16, kEntries);
  std::vector<void*> order;
  for (uint32_t slot = 0; slot < table_of(hash).size; ++slot) {
    const Entry* const entry = table_of(hash).slots[slot];
    if (entry != nullptr) order.push_back(entry->key);
  }
  size_t freed = 0;
  at_destroy = [&](void* given, void* value) {
    ASSERT_EQ(given, order[freed]);
    ASSERT_EQ(g_hash_count(hash), kEntries - freed);
    ASSERT_EQ(g_hash_find(hash, given), value);
    for (size_t i = 0; i < order.size(); ++i) {
      ASSERT_EQ(g_hash_find(hash, order[i]) == nullptr, i < freed);
    }
    if (freed > 0) {
      ASSERT_EQ(g_hash_remove(hash, order[freed - 1]), -1);
    }
    ++freed;
  };
  g_hash_free(hash);
  EXPECT_EQ(freed, kEntries);
}

TEST_P(HashReentry, ADestroyFunctionMayRemoveOthersWhileTheTableIsFreed) {
  make(16, 50);
  at_destroy = [&](void*, void*) {
    const auto nested = std::exchange(at_destroy, nullptr);
    for (uintptr_t i = 0; i < 50; i += 7) remove(i);
    at_destroy = nested;
  };
  g_hash_free(hash);
  const std::set<Pair> all(destroyed.begin(), destroyed.end());
  EXPECT_EQ(destroyed.size(), 50u);
  EXPECT_EQ(all.size(), 50u);
}

TEST_P(HashReentry, ADestroyFunctionMayInsertUntilTheTableGrows) {
  make(4, 3);
  at_destroy = [&](void*, void*) {
    for (uintptr_t i = 10; i < 200; ++i) ASSERT_EQ(insert(i), 0);
  };
  EXPECT_EQ(remove(1), 0);
  EXPECT_EQ(find(1), nullptr);
  EXPECT_EQ(g_hash_count(hash), 192u);
  EXPECT_EQ(find(0), number(1));
  EXPECT_EQ(find(2), number(3));
  for (uintptr_t i = 10; i < 200; ++i) EXPECT_EQ(find(i), number(i + 1));
  EXPECT_EQ(destroyed, (std::vector<Pair>{{key(1), number(2)}}));
  at_destroy = nullptr;
  g_hash_free(hash);
  EXPECT_EQ(destroyed.size(), 193u);
}

TEST_P(HashReentry, ADestroyFunctionThatRemovesItsOwnEntryIsNotCalledAgain) {
  make(8, 5);
  int inner = 7;
  at_destroy = [&](void* given, void*) {
    inner = g_hash_remove(hash, given);
    EXPECT_EQ(g_hash_find(hash, given), nullptr);
    EXPECT_EQ(g_hash_remove(hash, given), -1);
  };
  EXPECT_EQ(remove(3), 0);
  EXPECT_EQ(inner, 0);
  EXPECT_EQ(g_hash_count(hash), 4u);
  EXPECT_EQ(destroyed, (std::vector<Pair>{{key(3), number(4)}}));
  g_hash_free(hash);
  EXPECT_EQ(destroyed.size(), 5u);
}

TEST_P(HashReentry, DestroyFunctionsThatRemoveEachOthersEntriesEnd) {
  make(8, 6);
  at_destroy = [&](void*, void*) {
    for (uintptr_t i = 0; i < 6; ++i) remove(i);
  };
  EXPECT_EQ(remove(2), 0);
  EXPECT_EQ(g_hash_count(hash), 0u);
  EXPECT_EQ(destroyed.size(), 6u);
  EXPECT_EQ(insert(2), 0);
  EXPECT_EQ(find(2), number(3));
  at_destroy = nullptr;
  g_hash_free(hash);
}

TEST_P(HashReentry, AKeyStoredAgainWhileItIsRemovedGoesWithIt) {
  make(8, 3);
  at_destroy = [&](void* given, void*) {
    EXPECT_EQ(g_hash_insert(hash, given, number(99)), 0);
    EXPECT_EQ(g_hash_find(hash, given), number(99));
  };
  EXPECT_EQ(remove(1), 0);
  EXPECT_EQ(find(1), nullptr);
  EXPECT_EQ(g_hash_count(hash), 2u);
  at_destroy = nullptr;
  g_hash_free(hash);
}

TEST_P(HashReentry, ATableThatIsFreedTakesAsManyNewEntriesAsItHadAndDestroysThem) {
  AllocationFaults blocks(0);
  {
    make(4, 3);
    uintptr_t next = 100;
    uintptr_t stored = 0;
    at_destroy = [&](void*, void*) {
      const uintptr_t n = next++;
      if (insert(n) == 0) ++stored;
      EXPECT_EQ(find(n) != nullptr, stored == n - 99);
    };
    g_hash_free(hash);
    EXPECT_EQ(stored, 3u);
    const std::set<Pair> all(destroyed.begin(), destroyed.end());
    EXPECT_EQ(destroyed.size(), 6u);
    EXPECT_EQ(all.size(), 6u);
    at_destroy = nullptr;
    std::vector<Pair>().swap(destroyed);
  }
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST_P(HashReentry, ADestroyFunctionMayFreeTheTableThatIsBeingFreed) {
  AllocationFaults blocks(0);
  make(4, 10);
  at_destroy = [&](void*, void*) { g_hash_free(hash); };
  g_hash_free(hash);
  EXPECT_EQ(destroyed.size(), 10u);
  at_destroy = nullptr;
  std::vector<Pair>().swap(destroyed);
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST_P(HashReentry, ADestroyFunctionMayTakeOutTheLastOfManyEntries) {
  AllocationFaults blocks(0);
  make(4, 200);
  for (uintptr_t n = 0; n < 200; ++n) {
    if (n == 199) at_destroy = [&](void*, void*) { EXPECT_EQ(remove(199), 0); };
    EXPECT_EQ(remove(n), 0);
  }
  at_destroy = nullptr;
  EXPECT_EQ(g_hash_count(hash), 0u);
  EXPECT_EQ(insert(7), 0);
  EXPECT_NE(find(7), nullptr);
  g_hash_free(hash);
  EXPECT_EQ(destroyed.size(), 201u);
  std::vector<Pair>().swap(destroyed);
  EXPECT_EQ(blocks.outstanding(), 0);
}

// --- hash and equality functions: tables that are walked ---

class HashReentryOfKeyFunctions : public HashReentry {};
INSTANTIATE_TEST_SUITE_P(Walked, HashReentryOfKeyFunctions, ::testing::Values(kModes[3]),
                         [](const auto& mode) { return std::string(mode.param.name); });

TEST_P(HashReentryOfKeyFunctions, AnEqualityMayRemoveTheEntryItIsAskedAbout) {
  make(8, 5);
  at_equal = [&](const void* stored, const void*) {
    const auto nested = std::exchange(at_equal, nullptr);
    g_hash_remove(hash, stored);
    at_equal = nested;
  };
  EXPECT_EQ(find(0), nullptr);
  EXPECT_EQ(remove(3), -1);
  EXPECT_EQ(g_hash_count(hash), 0u);
  at_equal = nullptr;
  EXPECT_EQ(insert(3), 0);
  EXPECT_EQ(find(3), number(4));
  g_hash_free(hash);
  EXPECT_EQ(destroyed.size(), 6u);
}

TEST_P(HashReentryOfKeyFunctions, ASearchWhoseEqualityMakesTheTableGrowStillFindsTheKey) {
  make(8, 7);
  at_equal = [&](const void*, const void*) {
    at_equal = nullptr;
    for (uintptr_t i = 100; i < 130; ++i) insert(i);
  };
  EXPECT_EQ(find(6), number(7));
  EXPECT_GE(table_of(hash).size, 32u);
  EXPECT_EQ(g_hash_count(hash), 37u);
  at_equal = [&](const void*, const void*) {
    at_equal = nullptr;
    for (uintptr_t i = 200; i < 300; ++i) insert(i);
  };
  EXPECT_EQ(remove(5), 0);
  EXPECT_EQ(find(5), nullptr);
  EXPECT_EQ(g_hash_count(hash), 136u);
  g_hash_free(hash);
}

TEST_P(HashReentryOfKeyFunctions, AnEqualityThatAlwaysInsertsDoesNotKeepTheCallGoing) {
  make(8, 7);
  uintptr_t next = 100;
  const auto insert_one = [&](const void*, const void*) {
    const auto nested = std::exchange(at_equal, nullptr);
    insert(next++);
    at_equal = nested;
  };
  at_equal = insert_one;
  find(50);
  EXPECT_LT(next, 200u);
  remove(51);
  EXPECT_LT(next, 600u);
  EXPECT_EQ(insert(52), 0);
  at_equal = nullptr;
  for (uintptr_t i = 100; i < next; ++i) ASSERT_EQ(find(i), number(i + 1));
  EXPECT_EQ(find(52), number(53));
  g_hash_free(hash);
}

TEST_P(HashReentryOfKeyFunctions, AnEqualityThatMovesTheHoleDoesNotKeepTheInsertionGoing) {
  make(4, 2);
  // Fills the hole ahead and opens one after it, for ever.
  uintptr_t next = 100;
  std::vector<const void*> met;
  at_equal = [&](const void* stored, const void*) {
    const auto nested = std::exchange(at_equal, nullptr);
    for (const void* const key : met) g_hash_remove(hash, key);
    met.assign(1, stored);
    insert(next++);
    at_equal = nested;
  };
  EXPECT_EQ(insert(50), 0);
  EXPECT_LT(next, 150u);
  at_equal = nullptr;
  EXPECT_EQ(find(50), number(51));
  g_hash_free(hash);
}

TEST_P(HashReentryOfKeyFunctions, AHashFunctionMayInsertWhileTheTableGrows) {
  make(4, 3);
  uintptr_t next = 100;
  at_hash = [&](const void*) {
    const auto nested = std::exchange(at_hash, nullptr);
    insert(next++);
    at_hash = nested;
  };
  EXPECT_EQ(insert(50), 0);
  at_hash = nullptr;
  EXPECT_EQ(g_hash_count(hash), 4 + (next - 100));
  EXPECT_EQ(find(50), number(51));
  for (uintptr_t i = 100; i < next; ++i) EXPECT_EQ(find(i), number(i + 1));
  g_hash_free(hash);
}

TEST_P(HashReentryOfKeyFunctions, AHashFunctionMayRemoveWhileTheTableGrows) {
  make(8, 7);
  int calls = 0;
  at_hash = [&](const void*) {
    if (++calls != 4) return;  // when it is asked about a stored key
    const auto nested = std::exchange(at_hash, nullptr);
    for (uintptr_t i = 0; i < 7; i += 2) EXPECT_EQ(remove(i), 0);
    at_hash = nested;
  };
  EXPECT_EQ(insert(50), 0);
  at_hash = nullptr;
  EXPECT_EQ(g_hash_count(hash), 4u);
  for (const uintptr_t i : {1u, 3u, 5u, 50u}) EXPECT_EQ(find(i), number(i + 1));
  EXPECT_EQ(find(2), nullptr);
  g_hash_free(hash);
}

TEST_P(HashReentryOfKeyFunctions, GrowthDoesNotHashAKeyThatIsBeingDestroyed) {
  make(8, 5);
  at_destroy = [&](void* dead, void*) {
    // As after free(dead).
    at_hash = [=](const void* key) { EXPECT_NE(key, dead); };
    for (uintptr_t i = 10; i < 40; ++i) insert(i);
  };
  EXPECT_EQ(remove(3), 0);
  at_hash = nullptr;
  at_destroy = nullptr;
  EXPECT_EQ(g_hash_count(hash), 34u);
  EXPECT_EQ(find(3), nullptr);
  g_hash_free(hash);
}

// --- at random ---

// The rules of a table whose destroy function uses it, written down directly.
class Model {
 public:
  Model(uint32_t size, GHashFunc hash_func, GEqualFunc equal_func)
      : slots_(size), hash_func_(hash_func), equal_func_(equal_func) {}
  void set_destroy(std::function<void(void*, void*)> function) { destroy_ = function; }

  int insert(void* key, void* value) {
    size_t slot = home(key);
    for (; slots_[slot].is_used; slot = (slot + 1) % slots_.size()) {
      if (!equal(slots_[slot].key, key)) continue;
      slots_[slot].key = key;
      slots_[slot].value = value;
      return 0;
    }
    if (insertions_left_ == 0) return -1;
    --insertions_left_;
    if (count_ == slots_.size() - 1) grow();
    place({true, false, next_id_++, key, value});
    ++count_;
    return 0;
  }
  void* find(const void* key) {
    const size_t slot = look_up(key);
    return slot != slots_.size() ? slots_[slot].value : nullptr;
  }
  int remove(const void* key) {
    const size_t slot = look_up(key);
    if (slot == slots_.size()) return -1;
    remove_slot(slot);
    return 0;
  }
  unsigned count() { return count_; }
  void free() {
    insertions_left_ = count_;
    while (count_ != 0) {
      for (size_t slot = 0; slot < slots_.size(); ++slot) {
        if (slots_[slot].is_used) remove_slot(slot);
      }
    }
  }
  std::vector<Pair> content() {
    std::vector<Pair> pairs;
    for (const Slot& slot : slots_) {
      pairs.push_back(slot.is_used ? Pair(slot.key, slot.value) : Pair());
    }
    return pairs;
  }

 private:
  struct Slot {
    bool is_used = false;
    bool is_leaving = false;
    int id = 0;
    void* key = nullptr;
    void* value = nullptr;
  };
  size_t home(const void* key) const { return hash_func_(key) % slots_.size(); }
  bool equal(const void* stored, const void* probe) const {
    return equal_func_ != nullptr ? equal_func_(stored, probe) != 0 : stored == probe;
  }
  size_t look_up(const void* key) const {
    for (size_t i = 0; i < slots_.size(); ++i) {
      const size_t slot = (home(key) + i) % slots_.size();
      if (slots_[slot].is_used && equal(slots_[slot].key, key)) return slot;
    }
    return slots_.size();
  }
  void remove_slot(size_t slot) {
    if (!slots_[slot].is_leaving) {
      slots_[slot].is_leaving = true;
      const int id = slots_[slot].id;
      destroy_(slots_[slot].key, slots_[slot].value);
      slot = 0;
      while (slot < slots_.size() && !(slots_[slot].is_used && slots_[slot].id == id))
        ++slot;
      if (slot == slots_.size()) return;
    }
    slots_[slot] = {};
    --count_;
  }
  void place(const Slot& content) {
    size_t slot = home(content.key);
    while (slots_[slot].is_used) slot = (slot + 1) % slots_.size();
    slots_[slot] = content;
  }
  void grow() {
    const auto old = std::exchange(slots_, std::vector<Slot>(slots_.size() * 2));
    for (const Slot& slot : old) {
      if (slot.is_used) place(slot);
    }
  }

  std::vector<Slot> slots_;
  uint32_t count_ = 0;
  uint32_t insertions_left_ = 0xffffffffu;
  int next_id_ = 0;
  GHashFunc hash_func_;
  GEqualFunc equal_func_;
  std::function<void(void*, void*)> destroy_;
};

class Real {
 public:
  Real(uint32_t size, GHashFunc hash_func, GEqualFunc equal_func)
      : hash_(g_hash_new(size, hash_func, equal_func, destroy)) {}
  void set_destroy(std::function<void(void*, void*)> function) { at_destroy = function; }
  int insert(void* key, void* value) { return g_hash_insert(hash_, key, value); }
  void* find(const void* key) { return g_hash_find(hash_, key); }
  int remove(const void* key) { return g_hash_remove(hash_, key); }
  unsigned count() { return g_hash_count(hash_); }
  void free() {
    g_hash_free(hash_);
    destroyed.clear();
  }
  std::vector<Pair> content() { return test::slots_of(hash_); }

 private:
  GHash* hash_;
};

// Operations at random, also from inside the destroy function. Tables that behave alike
// give the same record.
template <typename Subject>
class RandomUse {
 public:
  RandomUse(unsigned seed, const Mode& mode)
      : random_(seed),
        mode_(mode),
        subject_(1 + static_cast<uint32_t>(random_() % 40),
                 mode.hash_func != nullptr ? mode.hash_func : g_hash_direct,
                 mode.equal_func),
        keys_(4 + random_() % 100) {
    subject_.set_destroy([this](void* key, void* value) { use_in_destroy(key, value); });
  }
  RandomUse(const RandomUse&) = delete;
  RandomUse& operator=(const RandomUse&) = delete;

  std::vector<uintptr_t> run() {
    for (unsigned steps = 0; steps < 60; ++steps) {
      nested_left_ = 40;
      step();
      for (const Pair& pair : subject_.content()) {
        note(pair.first);
        note(pair.second);
      }
    }
    nested_left_ = 200;
    subject_.free();
    return record_;
  }

 private:
  void note(const void* pointer) {
    record_.push_back(reinterpret_cast<uintptr_t>(pointer));
  }
  void note(int result) { record_.push_back(static_cast<uintptr_t>(result)); }
  void note(unsigned count) { record_.push_back(count); }

  void step() {
    void* const key = number(mode_.key(random_() % keys_));
    switch (random_() % 8) {
      case 0:
      case 1:
      case 2:
        note(subject_.insert(key, number(value_++)));
        break;
      case 3:
        note(subject_.find(key));
        break;
      case 4:
        note(subject_.count());
        break;
      default:
        note(subject_.remove(key));
        break;
    }
  }

  void use_in_destroy(void* key, void* value) {
    note(key);
    note(value);
    if (random_() % 3 == 0 || depth_ >= 5) return;
    ++depth_;
    if (random_() % 3 == 0) note(subject_.remove(key));
    for (auto steps = random_() % 4; steps > 0 && nested_left_ > 0;
         --steps, --nested_left_) {
      step();
    }
    // Now and then enough to grow.
    if (random_() % 40 == 0 && nested_left_ > 0) {
      for (uintptr_t i = 0; i < keys_; ++i) {
        note(subject_.insert(number(mode_.key(i)), number(value_++)));
      }
    }
    --depth_;
  }

  std::mt19937 random_;
  const Mode& mode_;
  Subject subject_;
  const uintptr_t keys_;
  uintptr_t value_ = 1;
  unsigned depth_ = 0;
  unsigned nested_left_ = 0;
  std::vector<uintptr_t> record_;
};

TEST_P(HashReentry, AgreesWithAModelWhenDestroyFunctionsUseTheTableAtRandom) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    const auto expected = RandomUse<Model>(seed, GetParam()).run();
    AllocationFaults blocks(0);
    bool agrees = false;
    {
      agrees = RandomUse<Real>(seed, GetParam()).run() == expected;
      at_destroy = nullptr;
      std::vector<Pair>().swap(destroyed);
    }
    blocks.disarm();
    ASSERT_TRUE(agrees) << "seed " << seed;
    ASSERT_EQ(blocks.outstanding(), 0) << "seed " << seed;
  }
}

// Checks what must hold of any table while no callback is running.
void expect_consistent(GHash* hash, const std::set<void*>& gone) {
  const Table& table = table_of(hash);
  uint32_t occupied = 0;
  std::set<void*> values;
  for (uint32_t slot = 0; slot < table.size; ++slot) {
    const Entry* const entry = table.slots[slot];
    if (entry == nullptr) continue;
    ++occupied;
    EXPECT_TRUE(values.insert(entry->value).second) << "stored twice";
    EXPECT_EQ(gone.count(entry->value), 0u) << "destroyed, but still there";
  }
  EXPECT_EQ(table.count, occupied);
  EXPECT_LT(table.count, table.size);
  for (uint32_t slot = 0; slot < table.size; ++slot) {
    const Entry* const entry = table.slots[slot];
    if (entry == nullptr) continue;
    EXPECT_EQ(values.count(g_hash_find(hash, entry->key)), 1u);
  }
}

// A table whose functions use it at random, as long as so many nested uses are left.
class NestedUse {
 public:
  explicit NestedUse(unsigned seed)
      : random_(seed),
        hash_(g_hash_new(1 + static_cast<unsigned>(random_() % 20), own_hash, own_equal,
                         destroy)),
        keys_(4 + random_() % 30) {
    at_destroy = [this](void*, void* value) {
      EXPECT_TRUE(gone_.insert(value).second) << "destroyed twice";
      nest();
    };
  }
  NestedUse(const NestedUse&) = delete;
  NestedUse& operator=(const NestedUse&) = delete;

  void run_step() {
    allow(30);
    step();
    at_hash = nullptr;
    at_equal = nullptr;
    nested_left_ = 0;
    expect_consistent(hash_, gone_);
  }

  void free() {
    allow(30);
    g_hash_free(hash_);
  }

 private:
  void allow(unsigned uses) {
    nested_left_ = uses;
    at_hash = [this](const void*) { nest(); };
    at_equal = [this](const void*, const void*) { nest(); };
  }

  void nest() {
    if (nested_left_ == 0 || depth_ >= 3 || random_() % 3 != 0) return;
    ++depth_;
    --nested_left_;
    step();
    --depth_;
  }

  void step() {
    void* const key = number(random_() % keys_);
    switch (random_() % 4) {
      case 0:
      case 1:
        g_hash_insert(hash_, key, number(value_++));
        break;
      case 2:
        g_hash_find(hash_, key);
        break;
      default:
        g_hash_remove(hash_, key);
        break;
    }
  }

  std::mt19937 random_;
  GHash* const hash_;
  const uintptr_t keys_;
  uintptr_t value_ = 1;
  unsigned depth_ = 0;
  unsigned nested_left_ = 0;
  std::set<void*> gone_;
};

TEST_P(HashReentryOfKeyFunctions, EveryFunctionMayUseTheTableAtRandom) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    AllocationFaults blocks(0);
    {
      NestedUse use(seed);
      for (int steps = 0; steps < 100; ++steps) use.run_step();
      use.free();
      SetUp();
      std::vector<Pair>().swap(destroyed);
    }
    blocks.disarm();
    ASSERT_EQ(blocks.outstanding(), 0);
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
