// SPDX-License-Identifier: MIT

#include <groundwork/list.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <random>
#include <type_traits>
#include <vector>

#include "support/allocation_faults.h"
#include "support/log_capture.h"

static_assert(std::is_same_v<decltype(GList::next), GList*> && offsetof(GList, next) == 0);
static_assert(std::is_same_v<decltype(GList::prev), GList*> &&
              offsetof(GList, prev) == sizeof(void*));
static_assert(std::is_same_v<decltype(GList::data), void*> &&
              offsetof(GList, data) == 2 * sizeof(void*));
static_assert(sizeof(GList) == 3 * sizeof(void*));

static_assert(std::is_same_v<decltype(g_list_free), void(GList*)>);
static_assert(std::is_same_v<decltype(g_list_index), int(GList*, const void*)>);
static_assert(std::is_same_v<decltype(g_list_nth), GList*(GList*, int)>);
static_assert(std::is_same_v<decltype(g_list_last), GList*(GList*)>);
static_assert(std::is_same_v<decltype(g_list_first), GList*(GList*)>);
static_assert(std::is_same_v<decltype(g_list_length), unsigned(GList*)>);
static_assert(std::is_same_v<decltype(g_list_insert), GList*(GList*, void*)>);
static_assert(std::is_same_v<decltype(g_list_append), GList*(GList*, void*)>);
static_assert(std::is_same_v<decltype(g_list_prepend), GList*(GList*, void*)>);
static_assert(std::is_same_v<decltype(g_list_insert_before), GList*(GList*, void*, int)>);
static_assert(std::is_same_v<decltype(g_list_copy), GList*(GList*)>);
static_assert(std::is_same_v<decltype(g_list_reverse), GList*(GList*)>);
static_assert(std::is_same_v<decltype(g_list_remove_link), GList*(GList*, GList*)>);
static_assert(std::is_same_v<decltype(g_list_delete_link), GList*(GList*, GList*)>);
static_assert(std::is_same_v<decltype(g_list_remove), GList*(GList*, const void*)>);
static_assert(std::is_same_v<decltype(g_list_find), GList*(GList*, const void*)>);

namespace {

int elements[64];
void* const a = &elements[0];
void* const b = &elements[1];
void* const c = &elements[2];
void* const d = &elements[3];

using Data = std::vector<void*>;

// The elements from `list` on; checks both links of every node on the way.
Data content(GList* list) {
  Data data;
  for (; list != nullptr; list = list->next) {
    data.push_back(list->data);
    if (list->next != nullptr) {
      EXPECT_EQ(list->next->prev, list);
    }
    if (list->prev != nullptr) {
      EXPECT_EQ(list->prev->next, list);
    }
  }
  return data;
}

GList* make(std::initializer_list<void*> data) {
  GList* list = nullptr;
  for (void* element : data) list = g_list_append(list, element);
  return list;
}

TEST(List, NullIsAnEmptyListEverywhere) {
  g_list_free(nullptr);
  EXPECT_EQ(g_list_index(nullptr, a), -1);
  EXPECT_EQ(g_list_nth(nullptr, 0), nullptr);
  EXPECT_EQ(g_list_nth(nullptr, 3), nullptr);
  EXPECT_EQ(g_list_last(nullptr), nullptr);
  EXPECT_EQ(g_list_first(nullptr), nullptr);
  EXPECT_EQ(g_list_length(nullptr), 0u);
  g_list_foreach(
      nullptr, [](void*, void*) { FAIL(); }, nullptr);
  EXPECT_EQ(g_list_copy(nullptr), nullptr);
  EXPECT_EQ(g_list_reverse(nullptr), nullptr);
  EXPECT_EQ(g_list_remove_link(nullptr, nullptr), nullptr);
  EXPECT_EQ(g_list_delete_link(nullptr, nullptr), nullptr);
  EXPECT_EQ(g_list_remove(nullptr, a), nullptr);
  EXPECT_EQ(g_list_find(nullptr, a), nullptr);
}

TEST(ListFree, FreesTheNodesFromTheGivenOneOn) {
  test::AllocationFaults blocks(0);
  GList* const list = make({a, b, c});
  g_list_free(list->next);
  EXPECT_EQ(blocks.outstanding(), 1);
  std::free(list);
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(ListIndex, CountsFromTheGivenNode) {
  GList* const list = make({a, b, c, b});
  EXPECT_EQ(g_list_index(list, a), 0);
  EXPECT_EQ(g_list_index(list, b), 1);
  EXPECT_EQ(g_list_index(list->next->next, b), 1);
  EXPECT_EQ(g_list_index(list, d), -1);
  EXPECT_EQ(g_list_index(list->next, a), -1);
  g_list_free(list);
}

TEST(ListNth, BelowOneReturnsTheListAndPastTheEndNull) {
  GList* const list = make({a, b, c});
  EXPECT_EQ(g_list_nth(list, 0), list);
  EXPECT_EQ(g_list_nth(list, -7), list);
  EXPECT_EQ(g_list_nth(list, 1), list->next);
  EXPECT_EQ(g_list_nth(list, 2), list->next->next);
  EXPECT_EQ(g_list_nth(list, 3), nullptr);
  EXPECT_EQ(g_list_nth(list, 1000000), nullptr);
  g_list_free(list);
}

TEST(ListEnds, AreFoundFromTheMiddle) {
  GList* const list = make({a, b, c});
  GList* const middle = list->next;
  EXPECT_EQ(g_list_first(middle), list);
  EXPECT_EQ(g_list_last(middle), middle->next);
  EXPECT_EQ(g_list_length(middle), 2u);
  EXPECT_EQ(g_list_length(list), 3u);
  g_list_free(list);
}

TEST(ListForeach, PassesEachElementAndTheUserData) {
  GList* const list = make({a, b, c});
  Data seen;
  g_list_foreach(
      list, [](void* data, void* user) { static_cast<Data*>(user)->push_back(data); },
      &seen);
  EXPECT_EQ(seen, (Data{a, b, c}));
  g_list_free(list);
}

TEST(ListForeach, BeginsAtTheGivenNode) {
  GList* const list = make({a, b, c});
  Data seen;
  g_list_foreach(
      list->next, [](void* data, void* user) { static_cast<Data*>(user)->push_back(data); },
      &seen);
  EXPECT_EQ(seen, (Data{b, c}));
  g_list_free(list);
}

TEST(ListForeach, TheCallbackMayUnlinkItsNode) {
  GList* list = make({a, b, c});
  g_list_foreach(
      list,
      [](void* data, void* user) {
        GList*& head = *static_cast<GList**>(user);
        head = g_list_remove(head, data);
      },
      &list);
  EXPECT_EQ(list, nullptr);
}

TEST(ListForeach, TheCallbackMayFreeItsNode) {
  GList* list = make({a, b, c});
  struct Walk {
    GList* node;
  } walk{list};
  g_list_foreach(
      list,
      [](void*, void* user) {
        auto* const current = static_cast<Walk*>(user);
        GList* const node = current->node;
        current->node = node->next;
        std::free(node);
      },
      &walk);
  EXPECT_EQ(walk.node, nullptr);
}

TEST(ListInsert, PutsTheElementSecondAndReturnsTheOldHead) {
  GList* const list = make({a, b});
  EXPECT_EQ(g_list_insert(list, c), list);
  EXPECT_EQ(content(list), (Data{a, c, b}));
  g_list_free(list);
}

TEST(ListInsert, AfterTheLastNodeAndIntoTheEmptyList) {
  GList* const list = g_list_insert(nullptr, a);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(g_list_insert(list, b), list);
  EXPECT_EQ(content(list), (Data{a, b}));
  EXPECT_EQ(list->prev, nullptr);
  g_list_free(list);
}

TEST(ListInsert, OnAMiddleNodePutsTheElementDirectlyAfterIt) {
  GList* const list = make({a, b, c});
  EXPECT_EQ(g_list_insert(list->next, d), list->next);
  EXPECT_EQ(content(list), (Data{a, b, d, c}));
  g_list_free(list);
}

TEST(ListAppend, FromTheMiddleReturnsTheNodeGiven) {
  GList* const list = make({a, b});
  EXPECT_EQ(g_list_append(list->next, c), list->next);
  EXPECT_EQ(content(list), (Data{a, b, c}));
  g_list_free(list);
}

TEST(ListPrepend, OnTheHeadReturnsTheNewHead) {
  GList* list = make({a});
  list = g_list_prepend(list, b);
  EXPECT_EQ(content(list), (Data{b, a}));
  EXPECT_EQ(list->prev, nullptr);
  g_list_free(list);
}

TEST(ListPrepend, OnAMiddleNodeSplicesAndReturnsTheNewNodeWhichIsNotTheHead) {
  GList* const list = make({a, b});
  GList* const node = g_list_prepend(list->next, c);
  EXPECT_EQ(node, list->next);
  EXPECT_EQ(node->data, c);
  EXPECT_EQ(content(list), (Data{a, c, b}));
  g_list_free(list);
}

TEST(ListInsertBefore, NegativeAndBeyondTheEndAppend) {
  GList* list = make({a, b});
  EXPECT_EQ(g_list_insert_before(list, c, -1), list);
  EXPECT_EQ(g_list_insert_before(list, d, 3), list);
  EXPECT_EQ(content(list), (Data{a, b, c, d}));
  g_list_free(list);
}

TEST(ListInsertBefore, ZeroPrependsAndReturnsTheNewNode) {
  GList* list = g_list_insert_before(nullptr, a, 0);
  EXPECT_EQ(content(list), (Data{a}));
  list = g_list_insert_before(list, b, 0);
  EXPECT_EQ(content(list), (Data{b, a}));
  g_list_free(list);
}

TEST(ListInsertBefore, AnIndexInsideInsertsThere) {
  GList* const list = make({a, b, c});
  EXPECT_EQ(g_list_insert_before(list, d, 2), list);
  EXPECT_EQ(content(list), (Data{a, b, d, c}));
  EXPECT_EQ(g_list_insert_before(list, d, 1), list);
  EXPECT_EQ(content(list), (Data{a, d, b, d, c}));
  g_list_free(list);
}

TEST(ListInsertBefore, CountsFromTheGivenNode) {
  GList* const list = make({a, b, c});
  GList* const middle = list->next;
  EXPECT_EQ(g_list_insert_before(middle, d, 1), middle);
  EXPECT_EQ(content(list), (Data{a, b, d, c}));
  GList* const node = g_list_insert_before(middle, d, 0);
  EXPECT_EQ(node, list->next);
  EXPECT_EQ(content(list), (Data{a, d, b, d, c}));
  g_list_free(list);
}

TEST(ListInsertBefore, AnyIndexIntoTheEmptyListGivesOneNode) {
  for (const int position : {-1, 0, 1, 5}) {
    GList* const list = g_list_insert_before(nullptr, a, position);
    EXPECT_EQ(content(list), (Data{a}));
    g_list_free(list);
  }
}

TEST(ListCopy, SharesTheElementsInNewNodes) {
  GList* const list = make({a, b, c});
  GList* const copy = g_list_copy(list->next);
  EXPECT_EQ(content(copy), (Data{b, c}));
  EXPECT_EQ(copy->prev, nullptr);
  EXPECT_NE(copy, list->next);
  g_list_free(list);
  g_list_free(copy);
}

TEST(ListReverse, ReturnsTheOldLastNodeAndTwiceRestores) {
  GList* const list = make({a, b, c});
  GList* const last = g_list_last(list);
  EXPECT_EQ(g_list_reverse(list), last);
  EXPECT_EQ(content(last), (Data{c, b, a}));
  EXPECT_EQ(last->prev, nullptr);
  EXPECT_EQ(g_list_reverse(last), list);
  EXPECT_EQ(content(list), (Data{a, b, c}));
  g_list_free(list);
  GList* const one = make({a});
  EXPECT_EQ(g_list_reverse(one), one);
  EXPECT_EQ(one->next, nullptr);
  EXPECT_EQ(one->prev, nullptr);
  g_list_free(one);
}

// From the given node on each node's links are swapped, the first one's with them.
TEST(ListReverse, FromAMiddleNodeLeavesTheNodesBeforeItAlone) {
  GList* const list = make({a, b, c});
  GList* const middle = list->next;
  GList* const last = middle->next;
  EXPECT_EQ(g_list_reverse(middle), last);
  EXPECT_EQ(last->prev, nullptr);
  EXPECT_EQ(last->next, middle);
  EXPECT_EQ(middle->prev, last);
  EXPECT_EQ(middle->next, list);
  EXPECT_EQ(list->next, middle);
  EXPECT_EQ(list->prev, nullptr);
  for (GList* const node : {list, middle, last}) std::free(node);  // they form a ring now
}

TEST(ListRemoveLink, OfALinkBeforeTheGivenNodeReturnsThatNode) {
  GList* const list = make({a, b, c});
  GList* const middle = list->next;
  EXPECT_EQ(g_list_delete_link(middle, list), middle);
  EXPECT_EQ(content(middle), (Data{b, c}));
  EXPECT_EQ(middle->prev, nullptr);
  g_list_free(middle);
}

TEST(ListRemoveLink, WithoutAListStillDetachesTheLink) {
  GList* const list = make({a, b});
  GList* const last = list->next;
  EXPECT_EQ(g_list_remove_link(nullptr, last), nullptr);
  EXPECT_EQ(content(list), (Data{a}));
  EXPECT_EQ(last->prev, nullptr);
  g_list_free(last);
  g_list_free(list);
}

TEST(ListRemoveLink, DetachesHeadMiddleAndLast) {
  GList* list = make({a, b, c, d});
  GList* const middle = list->next;
  EXPECT_EQ(g_list_remove_link(list, middle), list);
  EXPECT_EQ(content(list), (Data{a, c, d}));
  EXPECT_EQ(middle->next, nullptr);
  EXPECT_EQ(middle->prev, nullptr);
  EXPECT_EQ(middle->data, b);
  std::free(middle);

  GList* const head = list;
  list = g_list_remove_link(list, head);
  EXPECT_EQ(content(list), (Data{c, d}));
  EXPECT_EQ(list->prev, nullptr);
  std::free(head);

  GList* const last = g_list_last(list);
  EXPECT_EQ(g_list_remove_link(list, last), list);
  EXPECT_EQ(content(list), (Data{c}));
  std::free(last);
  g_list_free(list);
}

TEST(ListRemoveLink, NullLinkReturnsTheList) {
  GList* const list = make({a});
  EXPECT_EQ(g_list_remove_link(list, nullptr), list);
  EXPECT_EQ(g_list_delete_link(list, nullptr), list);
  EXPECT_EQ(content(list), (Data{a}));
  g_list_free(list);
}

TEST(ListDeleteLink, FreesTheNode) {
  test::AllocationFaults blocks(0);
  GList* list = make({a, b});
  list = g_list_delete_link(list, list);
  EXPECT_EQ(blocks.outstanding(), 1);
  EXPECT_EQ(content(list), (Data{b}));
  EXPECT_EQ(g_list_delete_link(list, list), nullptr);
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(ListRemove, TakesTheFirstMatchOnly) {
  GList* list = make({a, b, a, b});
  EXPECT_EQ(g_list_remove(list, b), list);
  EXPECT_EQ(content(list), (Data{a, a, b}));
  EXPECT_EQ(g_list_remove(list, d), list);
  list = g_list_remove(list, a);
  EXPECT_EQ(content(list), (Data{a, b}));
  EXPECT_EQ(list->prev, nullptr);
  g_list_free(list);
}

TEST(ListRemove, SearchesFromTheGivenNodeOn) {
  GList* const list = make({a, b, a, c});
  GList* const middle = list->next;
  EXPECT_EQ(g_list_remove(middle, a), middle);
  EXPECT_EQ(content(list), (Data{a, b, c}));
  EXPECT_EQ(g_list_remove(middle, a), middle);
  GList* const last = middle->next;
  EXPECT_EQ(g_list_remove(middle, b), last);
  EXPECT_EQ(content(list), (Data{a, c}));
  g_list_free(list);
}

TEST(List, MayHoldNull) {
  GList* list = make({a, nullptr, b});
  EXPECT_EQ(g_list_find(list, nullptr), list->next);
  EXPECT_EQ(g_list_index(list, nullptr), 1);
  list = g_list_remove(list, nullptr);
  EXPECT_EQ(content(list), (Data{a, b}));
  g_list_free(list);
}

TEST(List, ANodeIsABlockOfItsSizeFromTheSystemHeapAndAFailedOneIsNotReported) {
  test::LogCapture log(INT_MIN);
  test::AllocationFaults faults(0);
  GList* const list = g_list_append(nullptr, a);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 1);
  EXPECT_EQ(test::allocation_size(1), sizeof(GList));
  std::free(list);
  {
    test::AllocationFaults all_fail(1, true);
    EXPECT_EQ(g_list_append(nullptr, a), nullptr);
  }
  EXPECT_TRUE(log.take().empty());
}

TEST(ListFind, ReturnsTheFirstNodeFromTheGivenOne) {
  GList* const list = make({a, b, a});
  EXPECT_EQ(g_list_find(list, a), list);
  EXPECT_EQ(g_list_find(list->next, a), list->next->next);
  EXPECT_EQ(g_list_find(list, d), nullptr);
  g_list_free(list);
}

TEST(List, ExhaustedMemoryLeavesTheListUnchanged) {
  GList* const list = make({a, b});
  const auto expect_unchanged = [&](auto add, GList* on) {
    test::AllocationFaults faults(1);
    GList* const result = add(on);
    faults.disarm();
    EXPECT_EQ(result, on);
    EXPECT_EQ(content(list), (Data{a, b}));
    EXPECT_EQ(list->prev, nullptr);
  };
  for (GList* const on : {list, list->next, static_cast<GList*>(nullptr)}) {
    expect_unchanged([](GList* node) { return g_list_insert(node, c); }, on);
    expect_unchanged([](GList* node) { return g_list_append(node, c); }, on);
    expect_unchanged([](GList* node) { return g_list_prepend(node, c); }, on);
    for (const int position : {-1, 0, 1, 9}) {
      expect_unchanged(
          [position](GList* node) { return g_list_insert_before(node, c, position); }, on);
    }
  }
  test::for_each_failed_allocation([&](test::AllocationFaults& faults) {
    GList* const copy = g_list_copy(list);
    faults.disarm();
    if (faults.failures() != 0) {
      EXPECT_EQ(copy, nullptr);
    } else {
      EXPECT_EQ(content(copy), (Data{a, b}));
    }
    g_list_free(copy);
  });
  g_list_free(list);
}

// Runs an operation on a list and on the model of it. Returns the list.
GList* run_random_operation(std::mt19937& random, GList* list, Data& model) {
  void* const element = &elements[random() % 16];
  const auto found = std::find(model.begin(), model.end(), element);
  const int size = static_cast<int>(model.size());
  switch (model.size() > 40 ? 7 : random() % 9) {
    case 0:
      model.push_back(element);
      return g_list_append(list, element);
    case 1:
      model.insert(model.begin(), element);
      return g_list_prepend(list, element);
    case 2:
      model.insert(model.empty() ? model.begin() : model.begin() + 1, element);
      return g_list_insert(list, element);
    case 3: {
      const int position = static_cast<int>(random() % 50) - 2;
      model.insert(position < 0 || position > size ? model.end() : model.begin() + position,
                   element);
      return g_list_insert_before(list, element, position);
    }
    case 4:
      std::reverse(model.begin(), model.end());
      return g_list_reverse(list);
    case 5:
      EXPECT_EQ(g_list_index(list, element),
                found == model.end() ? -1 : static_cast<int>(found - model.begin()));
      return list;
    default:
      if (found != model.end()) model.erase(found);
      return g_list_remove(list, element);
  }
}

TEST(List, AgreesWithAVectorOverRandomOperations) {
  std::mt19937 random(20260101);
  GList* list = nullptr;
  Data model;
  for (int step = 0; step < 20000; ++step) {
    list = run_random_operation(random, list, model);
    ASSERT_EQ(content(list), model);
    ASSERT_EQ(g_list_length(list), model.size());
  }
  g_list_free(list);
}

}  // namespace
