// SPDX-License-Identifier: MIT

#include <groundwork/callback.h>
#include <groundwork/list.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <string>
#include <vector>

#include "support/allocation_faults.h"
#include "support/log_capture.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

using Calls = std::vector<std::string>;

// Each function notes its name and its data's text in the Calls that it gets.
template <char kName>
int note(void* arg, void* data) {
  auto* const calls = static_cast<Calls*>(arg);
  calls->push_back(std::string(1, kName) +
                   (data != nullptr ? static_cast<const char*>(data) : ""));
  return 0;
}

template <int kResult>
int return_number(void* arg, void*) {
  static_cast<Calls*>(arg)->push_back("stop");
  return kResult;
}

char kX[] = "x";
char kY[] = "y";

class CallbackList : public ::testing::Test {
 protected:
  CallbackList() : list(g_callback_new()) {}
  ~CallbackList() override { g_callback_free(list); }

  Calls execute(int expected_result = 0) {
    Calls calls;
    EXPECT_EQ(g_callback_execute(list, &calls), expected_result);
    return calls;
  }

  GCallback* const list;
};

TEST_F(CallbackList, EmptyListExecutesToZero) {
  EXPECT_EQ(g_callback_execute(list, nullptr), 0);
}

TEST_F(CallbackList, RunsByPriorityAndWithinItInTheOrderOfAddition) {
  EXPECT_EQ(g_callback_add(list, note<'1'>, nullptr, 5), 0);
  EXPECT_EQ(g_callback_add(list, note<'2'>, nullptr, 1), 0);
  EXPECT_EQ(g_callback_add(list, note<'3'>, nullptr, 5), 0);
  EXPECT_EQ(g_callback_add(list, note<'4'>, nullptr, 3), 0);
  EXPECT_EQ(execute(), (Calls{"2", "4", "1", "3"}));
}

TEST_F(CallbackList, PrioritiesAreSigned) {
  g_callback_add(list, note<'1'>, nullptr, 0);
  g_callback_add(list, note<'2'>, nullptr, INT_MAX);
  g_callback_add(list, note<'3'>, nullptr, INT_MIN);
  g_callback_add(list, note<'4'>, nullptr, -1);
  EXPECT_EQ(execute(), (Calls{"3", "4", "1", "2"}));
}

TEST_F(CallbackList, PassesTheArgumentAndTheData) {
  g_callback_add(list, note<'1'>, kX, 0);
  g_callback_add(list, note<'1'>, kY, 0);
  EXPECT_EQ(execute(), (Calls{"1x", "1y"}));
}

TEST_F(CallbackList, AnyNonZeroResultStopsTheExecution) {
  g_callback_add(list, note<'1'>, nullptr, 1);
  g_callback_add(list, note<'3'>, nullptr, 3);
  for (const GCallbackFunc stop :
       {return_number<1>, return_number<-7>, return_number<INT_MIN>}) {
    g_callback_add(list, stop, nullptr, 2);
    EXPECT_EQ(execute(-1), (Calls{"1", "stop"}));
    g_callback_remove(list, stop, nullptr);
  }
  EXPECT_EQ(execute(), (Calls{"1", "3"}));
}

TEST_F(CallbackList, RemovesTheFirstEntryThatMatchesInBothFunctionAndData) {
  g_callback_add(list, note<'1'>, kY, 0);
  g_callback_add(list, note<'2'>, kX, 1);
  g_callback_add(list, note<'1'>, kX, 2);
  g_callback_add(list, note<'2'>, kX, 3);
  EXPECT_EQ(g_callback_remove(list, note<'2'>, kX), 0);
  EXPECT_EQ(execute(), (Calls{"1y", "1x", "2x"}));
  EXPECT_EQ(g_callback_remove(list, note<'1'>, kX), 0);
  EXPECT_EQ(execute(), (Calls{"1y", "2x"}));
}

TEST_F(CallbackList, RemovingAPairThatWasNeverAddedReturnsZero) {
  EXPECT_EQ(g_callback_remove(list, note<'1'>, kX), 0);
  g_callback_add(list, note<'1'>, kX, 0);
  EXPECT_EQ(g_callback_remove(list, note<'1'>, kY), 0);
  EXPECT_EQ(g_callback_remove(list, note<'2'>, kX), 0);
  EXPECT_EQ(execute(), Calls{"1x"});
}

TEST_F(CallbackList, SamePairAddedTwiceIsTwoEntries) {
  g_callback_add(list, note<'1'>, kX, 0);
  g_callback_add(list, note<'1'>, kX, 0);
  EXPECT_EQ(execute(), (Calls{"1x", "1x"}));
  g_callback_remove(list, note<'1'>, kX);
  EXPECT_EQ(execute(), Calls{"1x"});
}

struct SelfRemover {
  GCallback* list;
  int calls;
};

int remove_itself(void*, void* data) {
  auto* const self = static_cast<SelfRemover*>(data);
  ++self->calls;
  return g_callback_remove(self->list, remove_itself, data);
}

TEST_F(CallbackList, FunctionMayRemoveItsOwnEntry) {
  SelfRemover first{list, 0};
  SelfRemover second{list, 0};
  g_callback_add(list, remove_itself, &first, 0);
  g_callback_add(list, remove_itself, &second, 0);
  g_callback_add(list, note<'1'>, nullptr, 0);
  EXPECT_EQ(execute(), Calls{"1"});
  EXPECT_EQ(execute(), Calls{"1"});
  EXPECT_EQ(first.calls, 1);
  EXPECT_EQ(second.calls, 1);
}

TEST_F(CallbackList, BadArgumentsReportTheFirstCheckOnly) {
  LogCapture log;
  const Lines no_list{check_line("g_callback", "callback != NULL")};
  const Lines no_func{check_line("g_callback", "func != NULL")};
  EXPECT_EQ(g_callback_add(nullptr, nullptr, nullptr, 0), -1);
  EXPECT_EQ(log.take(), no_list);
  EXPECT_EQ(g_callback_add(list, nullptr, nullptr, 0), -1);
  EXPECT_EQ(log.take(), no_func);
  EXPECT_EQ(g_callback_remove(nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), no_list);
  EXPECT_EQ(g_callback_remove(list, nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), no_func);
  EXPECT_EQ(g_callback_execute(nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), no_list);
  g_callback_free(nullptr);
  EXPECT_EQ(log.take(), no_list);
}

TEST_F(CallbackList, CellHoldsTheHeadOfAListOfRecords) {
  struct Record {
    GCallbackFunc func;
    void* data;
    int priority;
  };
  g_callback_add(list, note<'1'>, kX, 9);
  const GList* const head = *reinterpret_cast<GList**>(list);
  ASSERT_NE(head, nullptr);
  EXPECT_EQ(head->next, nullptr);
  const auto* const record = static_cast<const Record*>(head->data);
  EXPECT_EQ(record->func, note<'1'>);
  EXPECT_EQ(record->data, kX);
  EXPECT_EQ(record->priority, 9);
}

TEST(Callback, FreeGivesEverythingBack) {
  AllocationFaults faults(0);
  GCallback* const list = g_callback_new();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(g_callback_add(list, note<'1'>, kX, i % 3), 0);
  EXPECT_EQ(faults.outstanding(), 1 + 2 * 10);  // the list; an entry and its node each
  g_callback_remove(list, note<'1'>, kX);
  EXPECT_EQ(faults.outstanding(), 1 + 2 * 9);
  g_callback_free(list);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(Callback, FailedAllocationsLeaveTheListUnchanged) {
  LogCapture log;
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    GCallback* const list = g_callback_new();
    if (list == nullptr) return;
    // Into the empty list, before the head, and at the end.
    std::string expected;
    if (g_callback_add(list, note<'2'>, nullptr, 2) == 0) expected += '2';
    if (g_callback_add(list, note<'1'>, nullptr, 1) == 0) expected.insert(0, 1, '1');
    if (g_callback_add(list, note<'3'>, nullptr, 3) == 0) expected += '3';
    faults.disarm();
    Calls calls;
    EXPECT_EQ(g_callback_execute(list, &calls), 0);
    std::string ran;
    for (const std::string& call : calls) ran += call;
    EXPECT_EQ(ran, expected);
    g_callback_free(list);
  });
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Callback, AddingWithoutMemoryReturnsMinusOne) {
  GCallback* const list = g_callback_new();
  for (const int failing : {1, 2}) {
    AllocationFaults faults(failing);
    EXPECT_EQ(g_callback_add(list, note<'1'>, nullptr, 1), -1) << failing;
  }
  Calls calls;
  EXPECT_EQ(g_callback_execute(list, &calls), 0);
  EXPECT_EQ(calls, Calls{});
  g_callback_free(list);
}

TEST(Callback, RandomOperationsMatchAStableSort) {
  struct Entry {
    std::string call;
    int priority;
  };
  std::mt19937 random(7);
  std::vector<std::string> texts;
  for (int i = 0; i < 12; ++i) texts.push_back(std::to_string(i));
  GCallback* const list = g_callback_new();
  std::vector<Entry> model;
  for (int step = 0; step < 3000; ++step) {
    std::string& text = texts[random() % texts.size()];
    if (random() % 5 < 3) {
      const int priority = static_cast<int>(random() % 7) - 3;
      ASSERT_EQ(g_callback_add(list, note<'f'>, text.data(), priority), 0);
      model.push_back({"f" + text, priority});
      std::stable_sort(model.begin(), model.end(), [](const Entry& a, const Entry& b) {
        return a.priority < b.priority;
      });
    } else {
      ASSERT_EQ(g_callback_remove(list, note<'f'>, text.data()), 0);
      const auto found = std::find_if(model.begin(), model.end(), [&](const Entry& entry) {
        return entry.call == "f" + text;
      });
      if (found != model.end()) model.erase(found);
    }
    Calls calls;
    ASSERT_EQ(g_callback_execute(list, &calls), 0);
    Calls expected;
    for (const Entry& entry : model) expected.push_back(entry.call);
    ASSERT_EQ(calls, expected);
    if (model.size() > 40) {
      for (const Entry& entry : model) {
        for (std::string& one : texts) {
          if (entry.call == "f" + one) g_callback_remove(list, note<'f'>, one.data());
        }
      }
      model.clear();
    }
  }
  g_callback_free(list);
}

}  // namespace
