// Threads that end within a call of the library, where no destructor runs.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_ENDED_THREAD_H
#define GROUNDWORK_TESTS_SUPPORT_ENDED_THREAD_H

#include <groundwork/log.h>
#include <gtest/gtest.h>

#include <pthread.h>

#include "support/allocation_faults.h"
#include "support/descriptors.h"

namespace test {

// Runs `call` in a thread, which `end` makes end with the result `wanted`. Expects that no
// block and no descriptor of the call is left.
template <typename Call, typename End>
void expect_nothing_lost(Call call, void* wanted, End end) {
  struct Run {
    Call& call;
    AllocationFaults* blocks;
  } run = {call, nullptr};
  const auto body = [](void* data) -> void* {
    auto& started = *static_cast<Run*>(data);
    started.blocks = new AllocationFaults(0);
    started.call();
    return data;
  };
  const int expected = count_open_descriptors();
  for (const bool is_warm : {false, true}) {  // the first exit loads the unwinder
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, body, &run), 0);
    end(thread);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, wanted);
    if (is_warm) {
      EXPECT_EQ(run.blocks->outstanding(), 0);
    }
    delete run.blocks;
    EXPECT_EQ(count_open_descriptors(), expected);
  }
}

// The same for a thread that the output handler ends at its first message.
template <typename Call>
void expect_nothing_lost_at_a_message(Call call) {
  g_debug_set_handler([](const char*, void*) -> int { pthread_exit(nullptr); }, nullptr);
  expect_nothing_lost(call, nullptr, [](pthread_t) {});
  g_debug_set_handler(nullptr, nullptr);
}

}  // namespace test

#endif
