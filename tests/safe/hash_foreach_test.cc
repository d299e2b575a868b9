// The walk over a hash table.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "support/log_capture.h"

using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;

static_assert(std::is_same_v<decltype(g_hash_foreach),
                             int(GHash*, int (*)(void*, void*, void*), void*)>);

namespace {

void* number(uintptr_t value) {
  return reinterpret_cast<void*>(value);
}
uintptr_t number_of(const void* pointer) {
  return reinterpret_cast<uintptr_t>(pointer);
}

using Numbers = std::vector<uintptr_t>;
using Visitor = std::function<int(uintptr_t key, uintptr_t value)>;

int visit(void* key, void* value, void* visitor) {
  return (*static_cast<Visitor*>(visitor))(number_of(key), number_of(value));
}
int foreach (GHash* hash, Visitor visitor) {
  return g_hash_foreach(hash, visit, &visitor);
}

std::function<void(uintptr_t key)> at_destroy;
void destroy(void* key, void*) {
  if (at_destroy) at_destroy(number_of(key));
}

// Keys by pointer, through the index, and by functions of the caller.
uint32_t own_hash(const void* key) {
  return g_hash_direct(key);
}
class HashForeach : public ::testing::TestWithParam<GHashFunc> {
 protected:
  void SetUp() override {
    at_destroy = nullptr;
    hash = g_hash_new(16, GetParam(), nullptr, destroy);
    ASSERT_NE(hash, nullptr);
  }
  void TearDown() override {
    at_destroy = nullptr;
    g_hash_free(hash);
  }
  void insert(uintptr_t key) {
    ASSERT_EQ(g_hash_insert(hash, number(key), number(key + 100)), 0);
  }
  int remove(uintptr_t key) { return g_hash_remove(hash, number(key)); }
  Numbers keys() {
    Numbers met;
    EXPECT_EQ(foreach (hash,
                       [&](uintptr_t key, uintptr_t value) {
                         EXPECT_EQ(value, key + 100);
                         met.push_back(key);
                         return 0;
                       }),
              0);
    return met;
  }
  GHash* hash = nullptr;
};
INSTANTIATE_TEST_SUITE_P(IndexedAndWalked, HashForeach,
                         ::testing::Values(GHashFunc{nullptr}, GHashFunc{own_hash}));

TEST_P(HashForeach, PassesKeysAndValuesInTheOrderOfTheSlots) {
  for (const uintptr_t key : {9u, 3u, 19u, 15u, 31u}) insert(key);
  // 31 takes the first slot, since the last, its home, is 15's; 19 the one after 3.
  EXPECT_EQ(keys(), (Numbers{31, 3, 19, 9, 15}));
}

TEST_P(HashForeach, OfAnEmptyTableCallsNothingAndReturnsZero) {
  EXPECT_EQ(keys(), Numbers{});
}

TEST_P(HashForeach, StopsAtAResultOtherThanZeroAndReturnsIt) {
  for (const uintptr_t key : {1u, 2u, 3u}) insert(key);
  for (const int result : {7, -1}) {
    Numbers met;
    EXPECT_EQ(foreach (hash,
                       [&](uintptr_t key, uintptr_t) {
                         met.push_back(key);
                         return key == 2 ? result : 0;
                       }),
              result);
    EXPECT_EQ(met, (Numbers{1, 2}));
  }
}

TEST_P(HashForeach, PassesNullKeysNullValuesAndTheData) {
  ASSERT_EQ(g_hash_insert(hash, nullptr, nullptr), 0);
  int calls = 0;
  EXPECT_EQ(g_hash_foreach(
                hash,
                [](void* key, void* value, void* data) {
                  ++*static_cast<int*>(data);
                  return key == nullptr && value == nullptr ? 5 : 6;
                },
                &calls),
            5);
  EXPECT_EQ(calls, 1);
}

TEST_P(HashForeach, NullIsReportedFirstTheTableThenTheFunction) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_hash_foreach(nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_hash", "hash != NULL")});
  errno = 0;
  EXPECT_EQ(g_hash_foreach(hash, nullptr, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_hash", "func != NULL")});
}

TEST_P(HashForeach, TheFunctionMayRemoveItsOwnKey) {
  for (uintptr_t key = 0; key < 10; ++key) insert(key);
  Numbers met;
  EXPECT_EQ(foreach (hash,
                     [&](uintptr_t key, uintptr_t) {
                       met.push_back(key);
                       EXPECT_EQ(remove(key), 0);
                       return 0;
                     }),
            0);
  EXPECT_EQ(met, (Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(g_hash_count(hash), 0u);
}

TEST_P(HashForeach, ARemovedEntryIsNotVisited) {
  for (uintptr_t key = 0; key < 10; ++key) insert(key);
  Numbers met;
  EXPECT_EQ(foreach (hash,
                     [&](uintptr_t key, uintptr_t) {
                       met.push_back(key);
                       if (key == 4) {
                         for (const uintptr_t other : {1u, 5u, 8u}) {
                           EXPECT_EQ(remove(other), 0);
                         }
                       }
                       return 0;
                     }),
            0);
  EXPECT_EQ(met, (Numbers{0, 1, 2, 3, 4, 6, 7, 9}));
  EXPECT_EQ(keys(), (Numbers{0, 2, 3, 4, 6, 7, 9}));
}

TEST_P(HashForeach, TheFunctionMayLookUpAndWalkTheSameTable) {
  for (uintptr_t key = 0; key < 10; ++key) insert(key);
  int calls = 0;
  EXPECT_EQ(foreach (hash,
                     [&](uintptr_t key, uintptr_t value) {
                       ++calls;
                       EXPECT_EQ(g_hash_find(hash, number(key)), number(value));
                       EXPECT_EQ(g_hash_find(hash, number(50)), nullptr);
                       EXPECT_EQ(keys().size(), 10u);
                       return 0;
                     }),
            0);
  EXPECT_EQ(calls, 10);
}

TEST_P(HashForeach, AWalkInsideMayRemoveWhatTheOuterOneHasBeforeIt) {
  for (uintptr_t key = 0; key < 10; ++key) insert(key);
  Numbers met;
  EXPECT_EQ(foreach (hash,
                     [&](uintptr_t key, uintptr_t) {
                       met.push_back(key);
                       return foreach (hash, [&](uintptr_t inner, uintptr_t) {
                         if (inner % 3 == 0) remove(inner);
                         return 0;
                       });
                     }),
            0);
  EXPECT_EQ(met, (Numbers{0, 1, 2, 4, 5, 7, 8}));
}

TEST_P(HashForeach, ADestroyFunctionMayRemoveAndWalk) {
  for (uintptr_t key = 0; key < 12; ++key) insert(key);
  std::set<uintptr_t> gone;
  at_destroy = [&](uintptr_t key) {
    EXPECT_TRUE(gone.insert(key).second);
    if (key % 2 != 0) return;
    EXPECT_EQ(remove(key + 1), 0);
    for (const uintptr_t met : keys()) EXPECT_NE(met, key + 1);
  };
  Numbers met;
  EXPECT_EQ(foreach (hash,
                     [&](uintptr_t key, uintptr_t) {
                       met.push_back(key);
                       if (key >= 4) {
                         EXPECT_EQ(remove(key), 0);
                       }
                       return 0;
                     }),
            0);
  EXPECT_EQ(met, (Numbers{0, 1, 2, 3, 4, 6, 8, 10}));
  EXPECT_EQ(keys(), (Numbers{0, 1, 2, 3}));
}

TEST_P(HashForeach, AWalkFromADestroyFunctionMeetsTheEntryThatIsStillThere) {
  for (const uintptr_t key : {1u, 2u}) insert(key);
  Numbers met;
  at_destroy = [&](uintptr_t) { met = keys(); };
  EXPECT_EQ(remove(1), 0);
  EXPECT_EQ(met, (Numbers{1, 2}));
}

TEST_P(HashForeach, WhileTheTableIsFreedMeetsWhatIsLeft) {
  GHash* const other = g_hash_new(8, GetParam(), nullptr, destroy);
  for (uintptr_t key = 0; key < 5; ++key) {
    ASSERT_EQ(g_hash_insert(other, number(key), number(key + 100)), 0);
  }
  std::vector<size_t> left;
  at_destroy = [&](uintptr_t) {
    size_t count = 0;
    foreach (other, [&](uintptr_t, uintptr_t) {
      ++count;
      return 0;
    })
      ;
    left.push_back(count);
  };
  g_hash_free(other);
  at_destroy = nullptr;
  EXPECT_EQ(left, (std::vector<size_t>{5, 4, 3, 2, 1}));
}

// It must not; but the walk ends, and the table is whole.
TEST_P(HashForeach, AFunctionThatAlwaysInsertsDoesNotKeepTheWalkGoing) {
  for (uintptr_t key = 0; key < 10; ++key) insert(key);
  uintptr_t next = 1000;
  int calls = 0;
  EXPECT_EQ(foreach (hash,
                     [&](uintptr_t, uintptr_t) {
                       insert(next++);
                       return ++calls < 10000 ? 0 : 1;
                     }),
            0);
  EXPECT_LE(calls, 16);
  EXPECT_EQ(g_hash_count(hash), 10 + (next - 1000));
}

TEST_P(HashForeach, AgreesWithAModelUnderRandomRemovals) {
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    GHash* const table =
        g_hash_new(1 + static_cast<unsigned>(random() % 64), GetParam(), nullptr, destroy);
    for (int i = 0; i < 60; ++i) {
      const uintptr_t key = random() % 500;
      ASSERT_EQ(g_hash_insert(table, number(key), number(key + 100)), 0);
    }
    Numbers order;
    foreach (table, [&](uintptr_t key, uintptr_t) {
      order.push_back(key);
      return 0;
    })
      ;
    ASSERT_EQ(order.size(), g_hash_count(table));
    std::set<uintptr_t> removed;
    Numbers met;
    foreach (table, [&](uintptr_t key, uintptr_t) {
      met.push_back(key);
      for (auto removals = random() % 3; removals > 0; --removals) {
        const uintptr_t other = order[random() % order.size()];
        EXPECT_EQ(g_hash_remove(table, number(other)),
                  removed.insert(other).second ? 0 : -1);
      }
      return 0;
    })
      ;
    // What was met was in order, not removed before, and nothing else was left out.
    size_t at = 0;
    for (const uintptr_t key : order) {
      if (at < met.size() && met[at] == key) {
        ++at;
      } else {
        EXPECT_EQ(removed.count(key), 1u) << key;
      }
    }
    EXPECT_EQ(at, met.size());
    g_hash_free(table);
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
