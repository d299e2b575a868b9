// SPDX-License-Identifier: MIT

#include <groundwork/hash.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "containers/hash_front.h"
#include "support/allocation_faults.h"
#include "support/log_capture.h"
#include "support/processor_time.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::slots_of;
using test::table_of;
using Entry = test::HashEntry;
using Table = test::HashTable;
using Lines = std::vector<std::string>;

static_assert(std::is_same_v<GHashFunc, uint32_t (*)(const void*)>);
static_assert(std::is_same_v<GEqualFunc, int (*)(const void*, const void*)>);
static_assert(std::is_same_v<GHashDestroyFunc, void (*)(void*, void*)>);
static_assert(std::is_same_v<decltype(g_hash_new),
                             GHash*(unsigned, GHashFunc, GEqualFunc, GHashDestroyFunc)>);
static_assert(std::is_same_v<decltype(g_hash_free), void(GHash*)>);
static_assert(std::is_same_v<decltype(g_hash_insert), int(GHash*, void*, void*)>);
static_assert(std::is_same_v<decltype(g_hash_find), void*(GHash*, const void*)>);
static_assert(std::is_same_v<decltype(g_hash_remove), int(GHash*, const void*)>);
static_assert(std::is_same_v<decltype(g_hash_count), unsigned(GHash*)>);
static_assert(std::is_same_v<decltype(&g_hash_direct), GHashFunc>);
static_assert(std::is_same_v<decltype(&g_hash_int), GHashFunc>);
static_assert(std::is_same_v<decltype(&g_hash_str), GHashFunc>);
static_assert(std::is_same_v<decltype(&g_hash_direct_equal), GEqualFunc>);
static_assert(std::is_same_v<decltype(&g_hash_int_equal), GEqualFunc>);
static_assert(std::is_same_v<decltype(&g_hash_str_equal), GEqualFunc>);

namespace {

void* number(uintptr_t value) {
  return reinterpret_cast<void*>(value);
}

char* text(const char* literal) {
  return const_cast<char*>(literal);
}

using Pair = std::pair<void*, void*>;

// Calls of the destroy callback.
std::vector<Pair> destroyed;
void record_destroyed(void* key, void* value) {
  destroyed.emplace_back(key, value);
}

// A table of pointer keys that is freed at the end of the test.
class HashTest : public ::testing::Test {
 protected:
  void make(unsigned size, GHashFunc hash_func = nullptr, GEqualFunc equal_func = nullptr,
            GHashDestroyFunc destroy_func = nullptr) {
    hash = g_hash_new(size, hash_func, equal_func, destroy_func);
    ASSERT_NE(hash, nullptr);
    destroyed.clear();
  }
  void TearDown() override {
    if (hash != nullptr) g_hash_free(hash);
  }
  GHash* hash = nullptr;
};

// --- making and freeing ---

TEST_F(HashTest, ANewTableIsEmptyAndHoldsItsFunctions) {
  make(5, g_hash_str, g_hash_str_equal, record_destroyed);
  const Table& table = table_of(hash);
  EXPECT_EQ(table.size, 5u);
  EXPECT_EQ(table.count, 0u);
  EXPECT_EQ(table.hash_func, &g_hash_str);
  EXPECT_EQ(table.equal_func, &g_hash_str_equal);
  EXPECT_EQ(table.destroy_func, &record_destroyed);
  EXPECT_EQ(slots_of(hash), std::vector<Pair>(5));
  EXPECT_EQ(g_hash_count(hash), 0u);
}

TEST_F(HashTest, ANullHashFunctionMeansThePointersValue) {
  make(8);
  EXPECT_EQ(table_of(hash).hash_func, &g_hash_direct);
  EXPECT_EQ(table_of(hash).equal_func, nullptr);
  g_hash_insert(hash, number(13), text("x"));
  EXPECT_EQ(slots_of(hash)[5], Pair(number(13), text("x")));
}

TEST_F(HashTest, SizeZeroCountsAsOne) {
  make(0);
  EXPECT_EQ(table_of(hash).size, 1u);
  EXPECT_EQ(g_hash_find(hash, number(1)), nullptr);
  EXPECT_EQ(g_hash_insert(hash, number(1), text("x")), 0);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, number(1))), "x");
}

TEST_F(HashTest, ASizeBeyondMemoryGivesNull) {
  if (sizeof(void*) > 4) GTEST_SKIP() << "the array would fit";
  EXPECT_EQ(g_hash_new(0xffffffffu, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(g_hash_new(0x80000000u, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(g_hash_new(0x40000001u, nullptr, nullptr, nullptr), nullptr);
}

TEST_F(HashTest, FreeDestroysTheEntriesInTheOrderOfTheSlots) {
  make(8, nullptr, nullptr, record_destroyed);
  for (const uintptr_t key : {6u, 1u, 14u, 9u}) {
    g_hash_insert(hash, number(key), text("x"));
  }
  g_hash_free(std::exchange(hash, nullptr));
  EXPECT_EQ(destroyed, (std::vector<Pair>{{number(1), text("x")},
                                          {number(9), text("x")},
                                          {number(6), text("x")},
                                          {number(14), text("x")}}));
}

TEST_F(HashTest, FreeWithoutADestroyFunctionReleasesTheEntries) {
  AllocationFaults blocks(0);
  GHash* const table = g_hash_new(2, nullptr, nullptr, nullptr);
  for (uintptr_t key = 0; key < 100; ++key) g_hash_insert(table, number(key), nullptr);
  g_hash_free(table);
  blocks.disarm();
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(Hash, NullIsReportedEverywhere) {
  LogCapture log;
  const Lines expected{check_line("g_hash", "hash != NULL")};
  g_hash_free(nullptr);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_hash_insert(nullptr, text("k"), text("v")), -1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_hash_find(nullptr, "k"), nullptr);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_hash_remove(nullptr, "k"), -1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_hash_count(nullptr), 0u);
  EXPECT_EQ(log.take(), expected);
}

// --- key functions ---

TEST(HashDirect, IsThePointersValue) {
  EXPECT_EQ(g_hash_direct(number(0)), 0u);
  EXPECT_EQ(g_hash_direct(number(0xdeadbeefu)), 0xdeadbeefu);
  EXPECT_EQ(g_hash_direct_equal(number(7), number(7)), 1);
  EXPECT_EQ(g_hash_direct_equal(number(7), number(8)), 0);
}

TEST(HashInt, IsTheIntegerPointedTo) {
  const int32_t a = -2, b = -2, c = 5;
  EXPECT_EQ(g_hash_int(&a), 0xfffffffeu);
  EXPECT_EQ(g_hash_int(&c), 5u);
  EXPECT_EQ(g_hash_int_equal(&a, &b), 1);
  EXPECT_EQ(g_hash_int_equal(&a, &c), 0);
}

TEST(HashStr, MultipliesBy31AndAddsEachByte) {
  EXPECT_EQ(g_hash_str(""), 0u);
  EXPECT_EQ(g_hash_str("a"), 97u);
  EXPECT_EQ(g_hash_str("ab"), 3105u);
}

TEST(HashStr, BytesFrom0x80OnAreNegative) {
  EXPECT_EQ(g_hash_str("\xff"), 0xffffffffu);
  EXPECT_EQ(g_hash_str("\x80"), 0xffffff80u);
  EXPECT_EQ(g_hash_str("\xc3\xa9"), static_cast<uint32_t>(-61 * 31 - 87));
}

TEST(HashStr, AgreesWithTheRuleForEveryLength) {
  std::mt19937 random(1);
  for (size_t length = 0; length < 300; ++length) {
    std::string key;
    uint32_t expected = 0;
    for (size_t i = 0; i < length; ++i) {
      const int byte = static_cast<int>(random() % 255) + 1;
      key.push_back(static_cast<char>(byte));
      const int value = byte < 128 ? byte : byte - 256;
      expected = expected * 31 + static_cast<uint32_t>(value);
    }
    ASSERT_EQ(g_hash_str(key.c_str()), expected) << "length " << length;
  }
}

TEST(HashStr, EqualityIsThatOfTheText) {
  const std::string a = "text", b = "text";
  EXPECT_EQ(g_hash_str_equal(a.c_str(), b.c_str()), 1);
  EXPECT_EQ(g_hash_str_equal("text", "texT"), 0);
  EXPECT_EQ(g_hash_str_equal("text", "tex"), 0);
  EXPECT_EQ(g_hash_str_equal("", ""), 1);
}

// --- insert ---

TEST_F(HashTest, CollidingKeysTakeTheNextEmptySlotAcrossTheEnd) {
  make(8);
  for (const uintptr_t key : {6u, 14u, 22u, 30u}) {
    g_hash_insert(hash, number(key), nullptr);
  }
  const auto slots = slots_of(hash);
  EXPECT_EQ(slots[6].first, number(6));
  EXPECT_EQ(slots[7].first, number(14));
  EXPECT_EQ(slots[0].first, number(22));
  EXPECT_EQ(slots[1].first, number(30));
}

TEST_F(HashTest, AnExistingKeyHasKeyAndValueReplacedWithoutDestroying) {
  make(4, g_hash_str, g_hash_str_equal, record_destroyed);
  std::string first = "key", second = "key";
  EXPECT_EQ(g_hash_insert(hash, first.data(), text("1")), 0);
  EXPECT_EQ(g_hash_insert(hash, second.data(), text("2")), 0);
  EXPECT_EQ(g_hash_count(hash), 1u);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, "key")), "2");
  EXPECT_EQ(slots_of(hash)[g_hash_str("key") % 4].first, second.data());
  EXPECT_TRUE(destroyed.empty());
}

TEST_F(HashTest, TheFourthKeyMakesFourSlotsEightBeforeItIsStored) {
  make(4);
  for (const uintptr_t key : {0u, 4u, 8u}) {
    EXPECT_EQ(g_hash_insert(hash, number(key), text("x")), 0);
  }
  EXPECT_EQ(table_of(hash).size, 4u);
  EXPECT_EQ(g_hash_insert(hash, number(12), text("x")), 0);
  EXPECT_EQ(table_of(hash).size, 8u);
  EXPECT_EQ(g_hash_count(hash), 4u);
  // Moved in the order of the slots: 0, then 4, then 8 (after 0), then the new key.
  const auto slots = slots_of(hash);
  EXPECT_EQ(slots[0], Pair(number(0), text("x")));
  EXPECT_EQ(slots[1], Pair(number(8), text("x")));
  EXPECT_EQ(slots[4], Pair(number(4), text("x")));
  EXPECT_EQ(slots[5], Pair(number(12), text("x")));
}

TEST_F(HashTest, ReplacingInATableThatIsAboutToGrowDoesNotGrowIt) {
  make(4);
  for (const uintptr_t key : {1u, 2u, 3u}) g_hash_insert(hash, number(key), nullptr);
  g_hash_insert(hash, number(2), text("x"));
  EXPECT_EQ(table_of(hash).size, 4u);
}

TEST_F(HashTest, SizeOneGrowsToTwoForItsFirstKey) {
  make(1);
  EXPECT_EQ(g_hash_find(hash, number(1)), nullptr);
  EXPECT_EQ(g_hash_remove(hash, number(1)), -1);
  g_hash_insert(hash, number(1), text("x"));
  EXPECT_EQ(table_of(hash).size, 2u);
  g_hash_insert(hash, number(2), text("y"));
  EXPECT_EQ(table_of(hash).size, 4u);
}

TEST_F(HashTest, GrowthMovesEntriesWithoutCopyingThem) {
  make(3);
  g_hash_insert(hash, number(1), nullptr);
  const Entry* const entry = table_of(hash).slots[1];
  g_hash_insert(hash, number(2), nullptr);
  g_hash_insert(hash, number(4), nullptr);
  EXPECT_EQ(table_of(hash).size, 6u);
  EXPECT_EQ(table_of(hash).slots[1], entry);
}

TEST_F(HashTest, WithoutAnEqualFunctionEqualTextsAreDifferentKeys) {
  make(8, g_hash_str);
  std::string first = "key", second = "key";
  g_hash_insert(hash, first.data(), text("1"));
  g_hash_insert(hash, second.data(), text("2"));
  EXPECT_EQ(g_hash_count(hash), 2u);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, first.data())), "1");
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, second.data())), "2");
  EXPECT_EQ(g_hash_find(hash, "key"), nullptr);
}

TEST_F(HashTest, WithoutAnEqualFunctionAStringMayChangeWhileItIsStored) {
  make(64, g_hash_str);
  std::string key = "before";
  g_hash_insert(hash, key.data(), text("1"));
  key = "after!";
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, key.data())), "1");
}

// --- find and remove ---

TEST_F(HashTest, AnAbsentKeyIsNullAndMinusOne) {
  make(4, nullptr, nullptr, record_destroyed);
  g_hash_insert(hash, number(1), text("x"));
  EXPECT_EQ(g_hash_find(hash, number(5)), nullptr);
  EXPECT_EQ(g_hash_remove(hash, number(5)), -1);
  EXPECT_EQ(g_hash_count(hash), 1u);
  EXPECT_TRUE(destroyed.empty());
}

TEST_F(HashTest, ANullKeyIsAKeyLikeAnyOther) {
  make(4);
  EXPECT_EQ(g_hash_insert(hash, nullptr, text("x")), 0);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, nullptr)), "x");
  EXPECT_EQ(g_hash_remove(hash, nullptr), 0);
  EXPECT_EQ(g_hash_count(hash), 0u);
}

TEST_F(HashTest, RemoveDestroysStoredKeyAndValueAndLeavesAHole) {
  make(4, g_hash_str, g_hash_str_equal, record_destroyed);
  std::string stored = "key";
  g_hash_insert(hash, stored.data(), text("1"));
  EXPECT_EQ(g_hash_remove(hash, "key"), 0);
  EXPECT_EQ(destroyed, (std::vector<Pair>{{stored.data(), text("1")}}));
  EXPECT_EQ(g_hash_count(hash), 0u);
  EXPECT_EQ(slots_of(hash), std::vector<Pair>(4));
}

TEST_F(HashTest, NullKeysAndNullValuesAreDestroyedToo) {
  make(8, nullptr, nullptr, record_destroyed);
  for (const uintptr_t key : {0u, 1u, 2u}) g_hash_insert(hash, number(key), nullptr);
  g_hash_remove(hash, number(1));
  EXPECT_EQ(destroyed, (std::vector<Pair>{{number(1), nullptr}}));
  destroyed.clear();
  g_hash_free(std::exchange(hash, nullptr));
  EXPECT_EQ(destroyed, (std::vector<Pair>{{number(0), nullptr}, {number(2), nullptr}}));
}

// The table that a callback looks at while it runs.
GHash* observed = nullptr;
unsigned observed_count = 0;
void* observed_value = nullptr;

TEST_F(HashTest, TheEntryIsStillInPlaceWhileItIsDestroyed) {
  make(4, nullptr, nullptr, [](void* key, void*) {
    observed_count = g_hash_count(observed);
    observed_value = g_hash_find(observed, key);
  });
  observed = hash;
  g_hash_insert(hash, number(1), text("x"));
  g_hash_remove(hash, number(1));
  EXPECT_EQ(observed_count, 1u);
  EXPECT_STREQ(static_cast<char*>(observed_value), "x");
  EXPECT_EQ(g_hash_find(hash, number(1)), nullptr);
}

class HashSizes : public HashTest, public ::testing::WithParamInterface<unsigned> {};
INSTANTIATE_TEST_SUITE_P(SmallAndLarge, HashSizes, ::testing::Values(8u, 20u, 64u, 1000u));

TEST_P(HashSizes, TheStoredKeyMayBeRemovedThroughItsOwnPointer) {
  const unsigned size = GetParam();
  make(size, g_hash_str, g_hash_str_equal, [](void* key, void*) { std::free(key); });
  std::vector<char*> keys;
  for (unsigned i = 0; i < size - 1; ++i) {
    keys.push_back(strdup(std::to_string(i).c_str()));
    g_hash_insert(hash, keys.back(), nullptr);
  }
  for (char* const key : keys) EXPECT_EQ(g_hash_remove(hash, key), 0);
  EXPECT_EQ(g_hash_count(hash), 0u);
}

TEST_P(HashSizes, ASearchPassesOverHoles) {
  const unsigned size = GetParam();
  make(size);
  const uintptr_t home = size - 2;  // so that the run wraps
  for (const unsigned i : {0u, 1u, 2u, 3u}) {
    g_hash_insert(hash, number(home + i * size), number(i + 1));
  }
  EXPECT_EQ(g_hash_remove(hash, number(home)), 0);
  EXPECT_EQ(g_hash_remove(hash, number(home + 2 * size)), 0);
  EXPECT_EQ(g_hash_find(hash, number(home + size)), number(2));
  EXPECT_EQ(g_hash_find(hash, number(home + 3 * size)), number(4));
}

TEST_P(HashSizes, AnInsertionStopsAtAHoleAndStoresTheKeyTwice) {
  const unsigned size = GetParam();
  make(size, nullptr, nullptr, record_destroyed);
  const uintptr_t home = size - 1, second = home + size;
  g_hash_insert(hash, number(home), text("a"));
  g_hash_insert(hash, number(second), text("far"));
  g_hash_remove(hash, number(home));
  EXPECT_EQ(g_hash_insert(hash, number(second), text("near")), 0);
  EXPECT_EQ(g_hash_count(hash), 2u);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, number(second))), "near");
  destroyed.clear();
  EXPECT_EQ(g_hash_remove(hash, number(second)), 0);
  EXPECT_EQ(destroyed, (std::vector<Pair>{{number(second), text("near")}}));
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, number(second))), "far");
  EXPECT_EQ(g_hash_remove(hash, number(second)), 0);
  EXPECT_EQ(g_hash_remove(hash, number(second)), -1);
}

TEST_P(HashSizes, OfTwoCopiesAwayFromHomeTheNearerIsMet) {
  const unsigned size = GetParam();
  make(size);
  const uintptr_t home = size - 2;  // so that the run wraps
  const uintptr_t third = home + 2 * size;
  for (const uintptr_t key : {home, home + size}) {
    g_hash_insert(hash, number(key), nullptr);
  }
  g_hash_insert(hash, number(third), text("far"));
  g_hash_remove(hash, number(home + size));
  g_hash_insert(hash, number(third), text("near"));
  EXPECT_EQ(g_hash_count(hash), 3u);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, number(third))), "near");
  g_hash_insert(hash, number(third), text("nearer"));
  EXPECT_EQ(g_hash_count(hash), 3u);
  EXPECT_EQ(g_hash_remove(hash, number(third)), 0);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, number(third))), "far");
}

TEST_P(HashSizes, AnInsertionBeforeAHoleReplaces) {
  const unsigned size = GetParam();
  make(size);
  g_hash_insert(hash, number(1), text("1"));
  g_hash_insert(hash, number(1 + size), text("2"));
  g_hash_insert(hash, number(1 + 2 * size), text("3"));
  g_hash_remove(hash, number(1 + 2 * size));
  g_hash_insert(hash, number(1 + size), text("new"));
  EXPECT_EQ(g_hash_count(hash), 2u);
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, number(1 + size))), "new");
}

// --- the caller's own functions ---

std::vector<std::pair<const void*, const void*>> comparisons;
int hash_calls = 0;

uint32_t own_hash(const void* key) {
  ++hash_calls;
  return g_hash_direct(key) * 7;
}

int own_equal(const void* stored, const void* probe) {
  comparisons.emplace_back(stored, probe);
  return stored == probe ? 2 : 0;  // any non-zero value means equal
}

TEST_P(HashSizes, TheCallersEqualityMeetsEveryEntryFromTheHomeSlotOnStoredKeyFirst) {
  const unsigned size = GetParam();
  make(size, own_hash, own_equal);
  std::mt19937 random(size);
  for (unsigned i = 0; i < size - 2; ++i) {
    g_hash_insert(hash, number(random() % 5000 + 1), nullptr);
  }
  const void* const absent = number(6000);
  std::vector<std::pair<const void*, const void*>> expected;
  const uint32_t home = own_hash(absent) % size;
  for (uint32_t i = 0; i < size; ++i) {
    const Entry* const entry = table_of(hash).slots[(home + i) % size];
    if (entry != nullptr) expected.emplace_back(entry->key, absent);
  }
  comparisons.clear();
  EXPECT_EQ(g_hash_find(hash, absent), nullptr);
  EXPECT_EQ(comparisons, expected);
  comparisons.clear();
  EXPECT_EQ(g_hash_remove(hash, absent), -1);
  EXPECT_EQ(comparisons, expected);

  // An insertion meets the entries up to the first hole only.
  expected.clear();
  for (uint32_t i = 0;; ++i) {
    const Entry* const entry = table_of(hash).slots[(home + i) % size];
    if (entry == nullptr) break;
    expected.emplace_back(entry->key, absent);
  }
  comparisons.clear();
  EXPECT_EQ(g_hash_insert(hash, number(6000), nullptr), 0);
  EXPECT_EQ(comparisons, expected);
}

TEST_F(HashTest, TheCallersEqualityDecidesWhateverItsRule) {
  // Keys are equal modulo 10, which their hashes are not.
  make(64, nullptr, [](const void* stored, const void* probe) {
    return g_hash_direct(stored) % 10 == g_hash_direct(probe) % 10 ? 1 : 0;
  });
  g_hash_insert(hash, number(3), text("three"));
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, number(53))), "three");
}

TEST_F(HashTest, PointerHashWithStringEqualityComparesTexts) {
  make(64, g_hash_direct, g_hash_str_equal);
  std::string first = "key", second = "key";
  g_hash_insert(hash, first.data(), text("x"));
  EXPECT_STREQ(static_cast<char*>(g_hash_find(hash, second.data())), "x");
}

TEST_F(HashTest, SearchAndRemoveHashTheKeyOnce) {
  make(64, own_hash, own_equal);
  g_hash_insert(hash, number(1), text("x"));
  hash_calls = 0;
  g_hash_find(hash, number(1));
  EXPECT_EQ(hash_calls, 1);
  g_hash_remove(hash, number(1));
  EXPECT_EQ(hash_calls, 2);
}

// --- against a model ---

// The probing rule written down directly.
class Model {
 public:
  struct Slot {
    bool used = false;
    void* key = nullptr;
    void* value = nullptr;
  };
  Model(uint32_t size, GHashFunc hash_func, GEqualFunc equal_func)
      : slots_(size), hash_func_(hash_func), equal_func_(equal_func) {}

  void insert(void* key, void* value) {
    size_t slot = home(key);
    for (; slots_[slot].used; slot = (slot + 1) % slots_.size()) {
      if (equal(slots_[slot].key, key)) {
        slots_[slot] = {true, key, value};
        return;
      }
    }
    if (count_ == slots_.size() - 1) grow();
    place({true, key, value});
    ++count_;
  }

  // Null when absent.
  const Slot* find(const void* key) const {
    for (size_t i = 0; i < slots_.size(); ++i) {
      const Slot& slot = slots_[(home(key) + i) % slots_.size()];
      if (slot.used && equal(slot.key, key)) return &slot;
    }
    return nullptr;
  }

  // The removed pair; {null, null} when absent.
  Pair remove(const void* key) {
    const Slot* const found = find(key);
    if (found == nullptr) return {};
    Slot& slot = slots_[static_cast<size_t>(found - slots_.data())];
    --count_;
    const Slot removed = std::exchange(slot, {});
    return {removed.key, removed.value};
  }

  uint32_t count() const { return count_; }

  ::testing::AssertionResult agrees(const GHash* hash) const {
    const Table& table = table_of(hash);
    if (table.size != slots_.size()) {
      return ::testing::AssertionFailure() << table.size << " slots, not " << slots_.size();
    }
    if (table.count != count_)
      return ::testing::AssertionFailure() << "count " << table.count;
    for (size_t slot = 0; slot < slots_.size(); ++slot) {
      const Entry* const entry = table.slots[slot];
      if ((entry != nullptr) != slots_[slot].used ||
          (entry != nullptr &&
           (entry->key != slots_[slot].key || entry->value != slots_[slot].value))) {
        return ::testing::AssertionFailure() << "slot " << slot << " differs";
      }
    }
    return ::testing::AssertionSuccess();
  }

 private:
  size_t home(const void* key) const { return hash_func_(key) % slots_.size(); }
  bool equal(const void* stored, const void* probe) const {
    return equal_func_ != nullptr ? equal_func_(stored, probe) != 0 : stored == probe;
  }
  void place(const Slot& content) {
    size_t slot = home(content.key);
    while (slots_[slot].used) slot = (slot + 1) % slots_.size();
    slots_[slot] = content;
  }
  void grow() {
    const std::vector<Slot> old =
        std::exchange(slots_, std::vector<Slot>(slots_.size() * 2));
    for (const Slot& slot : old) {
      if (slot.used) place(slot);
    }
  }

  std::vector<Slot> slots_;
  uint32_t count_ = 0;
  GHashFunc hash_func_;
  GEqualFunc equal_func_;
};

// Which functions, and keys for them: several buffers hold the same key.
struct KeyKind {
  const char* name;
  GHashFunc hash_func;
  GEqualFunc equal_func;
  enum { kPointers, kInts, kStrings } keys;
};

class HashAgainstModel : public ::testing::TestWithParam<KeyKind> {
 protected:
  // `distinct` keys; `stride` apart, so that homes collide or spread.
  void make_keys(uint32_t distinct, uint32_t stride) {
    keys.clear();
    ints.clear();
    strings.clear();
    for (uint32_t i = 0; i < distinct; ++i) {
      for (int copy = 0; copy < 2; ++copy) {
        switch (GetParam().keys) {
          case KeyKind::kPointers:
            keys.push_back(number(i * stride));
            break;
          case KeyKind::kInts:
            keys.push_back(&ints.emplace_back(static_cast<int32_t>(i * stride)));
            break;
          case KeyKind::kStrings:
            // "Aa" and "BB" hash alike, so many keys have the same hash.
            strings.emplace_back(i % 4 == 0   ? "AaAa" + std::to_string(i / 4)
                                 : i % 4 == 1 ? "BBBB" + std::to_string(i / 4)
                                 : i % 4 == 2 ? "AaBB" + std::to_string(i / 4)
                                              : "\xc3\xa9" + std::to_string(i * stride));
            keys.push_back(strings.back().data());
            break;
        }
      }
    }
  }

  void run(uint32_t size, uint32_t distinct, uint32_t stride, unsigned steps,
           unsigned removals) {
    SCOPED_TRACE(::testing::Message()
                 << "size " << size << ", " << distinct << " keys, stride " << stride
                 << ", removals " << removals);
    make_keys(distinct, stride);
    const KeyKind& kind = GetParam();
    GHash* const hash = g_hash_new(size, kind.hash_func, kind.equal_func, record_destroyed);
    ASSERT_NE(hash, nullptr);
    Model model(size, kind.hash_func != nullptr ? kind.hash_func : g_hash_direct,
                kind.equal_func);
    std::mt19937 random(size * 31 + distinct + stride);
    const unsigned check_every = 1 + table_of(hash).size / 64;
    for (unsigned step = 0; step < steps; ++step) {
      void* const key = keys[random() % keys.size()];
      const unsigned dice = static_cast<unsigned>(random() % 10);
      if (dice < removals) {
        destroyed.clear();
        const Model::Slot* const found = model.find(key);
        ASSERT_EQ(g_hash_remove(hash, key), found != nullptr ? 0 : -1);
        if (found != nullptr) {
          ASSERT_EQ(destroyed, std::vector<Pair>{model.remove(key)});
        } else {
          ASSERT_TRUE(destroyed.empty());
        }
      } else if (dice < 8) {
        void* const value = number(step + 1);
        ASSERT_EQ(g_hash_insert(hash, key, value), 0);
        model.insert(key, value);
      } else {
        const Model::Slot* const found = model.find(key);
        ASSERT_EQ(g_hash_find(hash, key), found != nullptr ? found->value : nullptr);
      }
      ASSERT_EQ(g_hash_count(hash), model.count());
      if (step % check_every == 0) {
        ASSERT_TRUE(model.agrees(hash)) << "step " << step;
      }
    }
    ASSERT_TRUE(model.agrees(hash));
    // The way out: everything that is left, in the order of the slots.
    std::vector<Pair> expected;
    for (const Pair& pair : slots_of(hash)) {
      if (pair.second != nullptr) expected.push_back(pair);
    }
    destroyed.clear();
    g_hash_free(hash);
    EXPECT_EQ(destroyed, expected);
  }

  std::vector<void*> keys;
  std::deque<int32_t> ints;
  std::deque<std::string> strings;
};

INSTANTIATE_TEST_SUITE_P(
    Keys, HashAgainstModel,
    ::testing::Values(
        KeyKind{"strings", g_hash_str, g_hash_str_equal, KeyKind::kStrings},
        KeyKind{"ints", g_hash_int, g_hash_int_equal, KeyKind::kInts},
        KeyKind{"direct", g_hash_direct, g_hash_direct_equal, KeyKind::kPointers},
        KeyKind{"nulls", nullptr, nullptr, KeyKind::kPointers},
        KeyKind{"identity_of_strings", g_hash_str, nullptr, KeyKind::kStrings},
        KeyKind{"identity_of_ints", g_hash_int, g_hash_direct_equal, KeyKind::kInts},
        KeyKind{"strings_at_their_address", g_hash_direct, g_hash_str_equal,
                KeyKind::kStrings},
        KeyKind{"ints_at_their_address", nullptr, g_hash_int_equal, KeyKind::kInts},
        KeyKind{"own", own_hash,
                [](const void* a, const void* b) { return a == b ? -1 : 0; },
                KeyKind::kPointers}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(HashAgainstModel, SmallTables) {
  for (uint32_t size = 1; size <= 40; ++size) run(size, size, 1, 300, 3);
}

TEST_P(HashAgainstModel, ManyHoles) {
  for (const uint32_t size : {16u, 33u, 64u, 100u, 128u, 250u}) {
    run(size, size, 1, 3000, 5);
    run(size, size / 2, 3, 3000, 4);
  }
}

TEST_P(HashAgainstModel, KeysThatShareAFewHomes) {
  for (const uint32_t size : {8u, 64u, 96u, 256u}) {
    run(size, size, size, 3000, 4);
    run(size, size, size / 2 + 1, 3000, 4);
  }
}

TEST_P(HashAgainstModel, GrowthFromOneSlotToManyHundreds) {
  run(1, 700, 7, 6000, 1);
  run(3, 700, 64, 6000, 2);
}

TEST_P(HashAgainstModel, AFullTableWithOneHoleThatMoves) {
  for (const uint32_t size : {32u, 65u, 257u, 1025u}) {
    const uint32_t stride = 5;
    make_keys(size - 1, stride);
    const KeyKind& kind = GetParam();
    GHash* const hash = g_hash_new(size, kind.hash_func, kind.equal_func, nullptr);
    Model model(size, kind.hash_func != nullptr ? kind.hash_func : g_hash_direct,
                kind.equal_func);
    std::mt19937 random(size);
    for (size_t i = 0; i < keys.size(); i += 2) {
      g_hash_insert(hash, keys[i], number(i + 1));
      model.insert(keys[i], number(i + 1));
    }
    ASSERT_TRUE(model.agrees(hash));
    for (int step = 0; step < 500; ++step) {
      void* const out = keys[random() % keys.size()];
      void* const in = keys[random() % keys.size() & ~size_t{1}];
      ASSERT_EQ(g_hash_remove(hash, out), model.remove(out) != Pair() ? 0 : -1);
      ASSERT_EQ(g_hash_insert(hash, in, number(7)), 0);
      model.insert(in, number(7));
      ASSERT_TRUE(model.agrees(hash)) << "size " << size << ", step " << step;
    }
    g_hash_free(hash);
  }
}

// --- exhausted memory ---

TEST(Hash, ATableThatCannotBeAllocatedIsNull) {
  for (const unsigned size : {1u, 16u, 100u}) {
    for (const int nth : {1, 2}) {
      AllocationFaults faults(nth, true);
      EXPECT_EQ(g_hash_new(size, g_hash_str, g_hash_str_equal, nullptr), nullptr);
      faults.disarm();
      EXPECT_EQ(faults.outstanding(), 0);
    }
  }
}

// Inserts one key more into a table that holds `size` - 1, which makes it grow, with the
// `nth` allocation failing. False when that allocation was not asked for any more.
bool insert_with_failing(int nth, bool and_all_later, unsigned size) {
  GHash* const table = g_hash_new(size, nullptr, nullptr, nullptr);
  for (uintptr_t key = 1; key < size; ++key) {
    EXPECT_EQ(g_hash_insert(table, number(key * 3), number(key)), 0);
  }
  const auto before = slots_of(table);
  AllocationFaults faults(nth, and_all_later);
  const int result = g_hash_insert(table, number(1), number(1000));
  faults.disarm();
  if (result != 0) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(slots_of(table), before);
    EXPECT_EQ(g_hash_count(table), size - 1);
    EXPECT_EQ(g_hash_find(table, number(1)), nullptr);
    EXPECT_EQ(faults.outstanding(), 0);
    EXPECT_EQ(g_hash_insert(table, number(1), number(1000)), 0);
  }
  EXPECT_EQ(table_of(table).size, size * 2);
  EXPECT_EQ(g_hash_find(table, number(1)), number(1000));
  for (uintptr_t key = 1; key < size; ++key) {
    EXPECT_EQ(g_hash_find(table, number(key * 3)), number(key));
  }
  g_hash_free(table);
  EXPECT_EQ(faults.outstanding(), 0);
  return faults.failures() != 0;
}

TEST(Hash, AnInsertionWithoutMemoryLeavesTheTableUnchanged) {
  for (const bool and_all_later : {false, true}) {
    for (const unsigned size : {1u, 4u, 16u, 32u, 64u, 100u}) {
      int nth = 1;
      while (insert_with_failing(nth, and_all_later, size)) ++nth;
      EXPECT_GT(nth, 2) << "an entry and a slot array are allocated";
    }
  }
}

// --- the entries' memory ---

// Kinds of tables: with and without an index, with and without a destroy function.
struct Kind {
  GHashFunc hash_func;
  GEqualFunc equal_func;
  GHashDestroyFunc destroy_func;
};
int same_number(const void* a, const void* b) {
  return a == b ? 1 : 0;
}
void do_nothing(void*, void*) {}
const Kind kKinds[] = {{nullptr, nullptr, nullptr},
                       {nullptr, nullptr, do_nothing},
                       {nullptr, same_number, nullptr},
                       {nullptr, same_number, do_nothing}};

TEST(Hash, ARemovedEntrysMemoryServesTheNextInsertion) {
  for (const Kind& kind : kKinds) {
    for (const uintptr_t others : {0, 5, 100}) {
      GHash* const table =
          g_hash_new(256, kind.hash_func, kind.equal_func, kind.destroy_func);
      for (uintptr_t key = 0; key <= others; ++key) {
        ASSERT_EQ(g_hash_insert(table, number(key), nullptr), 0);
      }
      AllocationFaults blocks(0);
      for (uintptr_t key = 0; key < 1000; ++key) {
        g_hash_remove(table, number(key));
        g_hash_insert(table, number(key + others + 1), nullptr);
      }
      blocks.disarm();
      EXPECT_EQ(blocks.calls(), 0) << others << " others";
      EXPECT_EQ(g_hash_count(table), others + 1);
      g_hash_free(table);
    }
  }
}

TEST(Hash, ATableThatBecomesEmptyGivesItsEntriesMemoryBack) {
  for (const Kind& kind : kKinds) {
    AllocationFaults blocks(0);
    GHash* const table = g_hash_new(4, kind.hash_func, kind.equal_func, kind.destroy_func);
    for (uintptr_t key = 0; key < 1000; ++key) g_hash_insert(table, number(key), nullptr);
    for (uintptr_t key = 0; key < 1000; ++key) g_hash_remove(table, number(key));
    blocks.disarm();
    EXPECT_EQ(blocks.outstanding(), 2) << "the table and its slots";
    g_hash_free(table);
    EXPECT_EQ(blocks.outstanding(), 0);
  }
}

TEST(Hash, InsertionsAskTheHeapSeldom) {
  AllocationFaults blocks(0);
  GHash* const table = g_hash_new(2048, nullptr, nullptr, nullptr);
  for (uintptr_t key = 0; key < 2000; ++key) g_hash_insert(table, number(key), nullptr);
  blocks.disarm();
  EXPECT_LT(blocks.calls(), 40);
  g_hash_free(table);
}

// A device has many small tables. The heap of the GNU C library rounds up to 16 bytes, four
// of which are its own.
TEST(Hash, AnEmptyTableOfSixteenSlotsTakes160Bytes) {
  if (sizeof(void*) != 4) GTEST_SKIP() << "for 32-bit targets";
  const auto chunk = [](size_t size) { return (size + 4 + 15) / 16 * 16; };
  AllocationFaults blocks(0);
  GHash* const table = g_hash_new(16, g_hash_str, g_hash_str_equal, nullptr);
  blocks.disarm();
  ASSERT_EQ(blocks.calls(), 2);
  EXPECT_LE(chunk(test::allocation_size(1)) + chunk(test::allocation_size(2)), 160u);
  g_hash_free(table);
}

// --- cost ---

constexpr size_t kFew = 500;
constexpr size_t kMany = 64000;

// The time of kFew searches for absent keys in a table with `entries` others, then of as
// many insertions and removals.
struct Cost {
  double searches;
  double changes;
};
template <typename MakeKey>
Cost cost_among(size_t entries, GHashFunc hash_func, GEqualFunc equal_func,
                MakeKey make_key) {
  GHash* const hash = g_hash_new(16, hash_func, equal_func, nullptr);
  for (size_t i = 0; i < entries; ++i) {
    EXPECT_EQ(g_hash_insert(hash, make_key(i), number(i + 1)), 0);
  }
  Cost cost;
  cost.searches = test::least_seconds(7, [&] {
    for (size_t i = 0; i < kFew; ++i) {
      EXPECT_EQ(g_hash_find(hash, make_key(entries + i)), nullptr);
    }
  });
  cost.changes = test::least_seconds(7, [&] {
    for (size_t i = 0; i < kFew; ++i) {
      EXPECT_EQ(g_hash_insert(hash, make_key(entries + i), nullptr), 0);
    }
    for (size_t i = 0; i < kFew; ++i) {
      EXPECT_EQ(g_hash_remove(hash, make_key(entries + i)), 0);
    }
  });
  for (size_t i = 0; i < entries; ++i) {
    EXPECT_EQ(g_hash_find(hash, make_key(i)), number(i + 1));
  }
  g_hash_free(hash);
  return cost;
}

// A walk would take 128 times as long in the larger table; an index takes some two to four
// times as long, as it leaves the cache.
template <typename MakeKey>
void expect_cost_not_to_grow(GHashFunc hash_func, GEqualFunc equal_func, MakeKey make_key) {
  const Cost among_few = cost_among(kFew, hash_func, equal_func, make_key);
  const Cost among_many = cost_among(kMany, hash_func, equal_func, make_key);
  EXPECT_LT(among_many.searches, 20 * among_few.searches);
  EXPECT_LT(among_many.changes, 20 * among_few.changes);
}

TEST(HashCost, AmongManyStringsIsThatAmongFew) {
  std::vector<std::string> keys;
  for (size_t i = 0; i < kMany + kFew; ++i) {
    keys.push_back("section.key" + std::to_string(i));
  }
  expect_cost_not_to_grow(g_hash_str, g_hash_str_equal,
                          [&](size_t i) { return keys[i].data(); });
}

TEST(HashCost, AmongManyIntsIsThatAmongFew) {
  std::vector<int32_t> keys;
  for (size_t i = 0; i < kMany + kFew; ++i) {
    keys.push_back(static_cast<int32_t>(i * 1000));
  }
  expect_cost_not_to_grow(g_hash_int, g_hash_int_equal, [&](size_t i) { return &keys[i]; });
}

TEST(HashCost, AmongManyPointersIsThatAmongFew) {
  std::vector<char> keys((kMany + kFew) * 16);
  expect_cost_not_to_grow(nullptr, nullptr, [&](size_t i) { return &keys[i * 16]; });
}

}  // namespace
