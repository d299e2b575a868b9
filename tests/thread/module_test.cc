// SPDX-License-Identifier: MIT

#include <groundwork/callback.h>
#include <groundwork/hash.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

#include "support/allocation_faults.h"
#include "support/log_capture.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;
using Calls = std::vector<int>;

namespace {

int note(void* arg, void* data) {
  static_cast<Calls*>(arg)->push_back(*static_cast<int*>(data));
  return 0;
}

int refuse(void*, void*) {
  return 3;
}

int values[] = {0, 1, 2, 3, 4, 5};

Calls execute(int module, int expected_result = 0) {
  Calls calls;
  EXPECT_EQ(g_module_callback_execute(module, &calls), expected_result);
  return calls;
}

class Module : public ::testing::Test {
 protected:
  Module() { EXPECT_EQ(g_module_init(), 0); }
  ~Module() override { g_module_cleanup(); }
};

TEST(ModuleWithoutRegistry, RegisterFailsExecuteIsEmptyAndCancelReturnsTheId) {
  LogCapture log;
  Calls calls;
  EXPECT_EQ(g_module_callback_register(3, note, &values[0], 0), -1);
  EXPECT_EQ(g_module_callback_execute(3, &calls), 0);
  for (const int module : {3, 0, -1, 77, INT_MIN, INT_MAX}) {
    EXPECT_EQ(g_module_callback_cancel(module, note, nullptr), module);
    EXPECT_EQ(g_module_callback_cancel(module, nullptr, nullptr), module);
  }
  EXPECT_EQ(log.take(), Lines{});
}

TEST(ModuleWithoutRegistry, CleanupReportsTheMissingTable) {
  LogCapture log;
  g_module_cleanup();
  EXPECT_EQ(log.take(), Lines{check_line("g_hash", "hash != NULL")});
}

TEST_F(Module, RunsTheCallbacksOfAModuleByPriority) {
  EXPECT_EQ(g_module_callback_register(7, note, &values[1], 5), 0);
  EXPECT_EQ(g_module_callback_register(7, note, &values[2], 1), 0);
  EXPECT_EQ(g_module_callback_register(8, note, &values[3], 0), 0);
  EXPECT_EQ(execute(7), (Calls{2, 1}));
  EXPECT_EQ(execute(8), Calls{3});
}

TEST_F(Module, AnyIntIsAnIdAndManyFit) {
  std::vector<int> ids{0, -1, INT_MIN, INT_MAX, 16, 32};
  for (int id = 100; id < 200; ++id) ids.push_back(id);
  for (int& id : ids) EXPECT_EQ(g_module_callback_register(id, note, &id, 0), 0);
  for (const int id : ids) EXPECT_EQ(execute(id), Calls{id});
}

TEST_F(Module, ModuleWithoutRegistrationsReturnsZero) {
  LogCapture log;
  EXPECT_EQ(execute(5), Calls{});
  EXPECT_EQ(g_module_callback_cancel(5, note, nullptr), 0);
  // Not even the function is checked then.
  EXPECT_EQ(g_module_callback_cancel(5, nullptr, nullptr), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Module, StoppedExecutionReturnsMinusOne) {
  g_module_callback_register(1, note, &values[1], 0);
  g_module_callback_register(1, refuse, nullptr, 1);
  g_module_callback_register(1, note, &values[2], 2);
  EXPECT_EQ(execute(1, -1), Calls{1});
}

TEST_F(Module, CancelRemovesOneEntry) {
  g_module_callback_register(1, note, &values[1], 0);
  g_module_callback_register(1, note, &values[2], 0);
  EXPECT_EQ(g_module_callback_cancel(1, note, &values[1]), 0);
  EXPECT_EQ(execute(1), Calls{2});
  EXPECT_EQ(g_module_callback_cancel(1, note, &values[1]), 0);
  EXPECT_EQ(execute(1), Calls{2});
}

TEST_F(Module, EmptiedListStaysRegistered) {
  LogCapture log;
  g_module_callback_register(1, note, &values[1], 0);
  g_module_callback_cancel(1, note, &values[1]);
  // A list that is there checks the function.
  EXPECT_EQ(g_module_callback_cancel(1, nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_callback", "func != NULL")});
  AllocationFaults faults(0);
  EXPECT_EQ(g_module_callback_register(1, note, &values[2], 0), 0);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 2);  // the entry and its node; no new list
  EXPECT_EQ(execute(1), Calls{2});
}

TEST_F(Module, NullFunctionIsReportedByTheList) {
  LogCapture log;
  EXPECT_EQ(g_module_callback_register(1, nullptr, nullptr, 0), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_callback", "func != NULL")});
}

// The leak checker would object.
#if !defined(__SANITIZE_ADDRESS__)
TEST(ModuleInit, ReplacesARegistryWithoutFreeingIt) {
  AllocationFaults faults(0);
  g_module_init();
  g_module_callback_register(1, note, &values[1], 0);
  const int before = faults.outstanding();
  g_module_init();
  const int after = faults.outstanding();
  faults.disarm();
  EXPECT_GT(after, before);
  EXPECT_EQ(execute(1), Calls{});
  g_module_cleanup();
  EXPECT_EQ(faults.outstanding(), before);
}
#endif

TEST(ModuleInit, MakesATableOfSixteenSlots) {
  AllocationFaults faults(0);
  GHash* const sixteen = g_hash_new(16, g_hash_direct, nullptr, nullptr);
  g_hash_free(sixteen);
  const size_t size = test::allocation_size(2);  // the first is the table's record
  g_module_init();
  faults.disarm();
  EXPECT_EQ(faults.calls(), 4);
  EXPECT_EQ(test::allocation_size(4), size);
  g_module_cleanup();
}

TEST(ModuleCleanup, FreesEveryListAndTheRegistry) {
  LogCapture log;
  AllocationFaults faults(0);
  g_module_init();
  for (int i = 0; i < 40; ++i) {
    EXPECT_EQ(g_module_callback_register(i % 9, note, &values[1], i), 0);
  }
  EXPECT_GT(faults.outstanding(), 2 * 40 + 9);
  g_module_cleanup();
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(g_module_callback_register(1, note, &values[1], 0), -1);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(ModuleMemory, FailedAllocationsAreSurvived) {
  LogCapture log(99);
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    EXPECT_EQ(g_module_init(), 0);
    bool is_registered[4];
    for (int i = 0; i < 4; ++i) {
      is_registered[i] = g_module_callback_register(i / 2, note, &values[i], 0) == 0;
    }
    faults.disarm();
    Calls expected;
    for (int i = 0; i < 4; ++i) {
      if (is_registered[i]) expected.push_back(i);
    }
    Calls calls;
    EXPECT_EQ(g_module_callback_execute(0, &calls), 0);
    EXPECT_EQ(g_module_callback_execute(1, &calls), 0);
    EXPECT_EQ(calls, expected);
    g_module_cleanup();
  });
}

}  // namespace
