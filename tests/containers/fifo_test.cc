// SPDX-License-Identifier: MIT

#include <groundwork/fifo.h>
#include <groundwork/thread.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/allocation_faults.h"
#include "support/log_capture.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::warning_line;
using Lines = std::vector<std::string>;

static_assert(std::is_same_v<decltype(g_fifo_new), GFifo*(int)>);
static_assert(std::is_same_v<decltype(g_fifo_free), void(GFifo*)>);
static_assert(std::is_same_v<decltype(g_fifo_empty), int(GFifo*)>);
static_assert(std::is_same_v<decltype(g_fifo_full), int(GFifo*)>);
static_assert(std::is_same_v<decltype(g_fifo_put), int(GFifo*, void*)>);
static_assert(std::is_same_v<decltype(g_fifo_get), void*(GFifo*)>);
static_assert(std::is_same_v<decltype(g_fifo_flush), int(GFifo*)>);
static_assert(std::is_same_v<decltype(g_fifo_count), int(GFifo*)>);
static_assert(std::is_same_v<decltype(g_fifo_avail), int(GFifo*)>);
static_assert(std::is_same_v<decltype(g_fifo_size), int(GFifo*)>);

namespace {

// The front of a ring.
struct Ring {
  void** slots;
  int32_t size;
  int32_t write_index;
  int32_t read_index;
  int32_t count;
  void* mutex;
};

const Ring& ring_of(const GFifo* fifo) {
  return *reinterpret_cast<const Ring*>(fifo);
}

void* number(uintptr_t value) {
  return reinterpret_cast<void*>(value);
}

Lines full_line(const GFifo* fifo) {
  char text[80];
  std::snprintf(text, sizeof text, "fifo(%p) is full, failed to put.",
                static_cast<const void*>(fifo));
  return {warning_line("g_fifo", text)};
}

Lines empty_line(const GFifo* fifo) {
  char text[80];
  std::snprintf(text, sizeof text, "fifo(%p) is empty, failed to get.",
                static_cast<const void*>(fifo));
  return {warning_line("g_fifo", text)};
}

class FifoTest : public ::testing::Test {
 protected:
  void make(int size) {
    fifo = g_fifo_new(size);
    ASSERT_NE(fifo, nullptr);
  }
  void TearDown() override {
    if (fifo != nullptr) g_fifo_free(fifo);
  }
  GFifo* fifo = nullptr;
};

TEST_F(FifoTest, ANewRingIsEmptyWithAllSlotsFree) {
  make(3);
  EXPECT_EQ(g_fifo_empty(fifo), 1);
  EXPECT_EQ(g_fifo_full(fifo), 0);
  EXPECT_EQ(g_fifo_count(fifo), 0);
  EXPECT_EQ(g_fifo_avail(fifo), 3);
  EXPECT_EQ(g_fifo_size(fifo), 3);
  const Ring& ring = ring_of(fifo);
  EXPECT_EQ(ring.size, 3);
  EXPECT_EQ(ring.write_index, 0);
  EXPECT_EQ(ring.read_index, 0);
  EXPECT_EQ(ring.count, 0);
  EXPECT_NE(ring.mutex, nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(ring.slots[i], nullptr);
}

TEST(FifoNew, ACapacityBelowOneReportsTheCheck) {
  LogCapture log;
  for (const int size : {0, -5, INT_MIN}) {
    EXPECT_EQ(g_fifo_new(size), nullptr);
    EXPECT_EQ(log.take(), Lines{check_line("g_fifo", "max_buf > 0")});
  }
}

TEST(FifoNew, ACapacityBeyondMemoryGivesNullSilently) {
  if (sizeof(void*) > 4) GTEST_SKIP() << "the array would fit";
  LogCapture log;
  EXPECT_EQ(g_fifo_new(INT_MAX), nullptr);
  EXPECT_EQ(g_fifo_new(0x40000001), nullptr);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FifoNew, EachFailedAllocationGivesNullSilentlyAndLeaksNothing) {
  LogCapture log;
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    GFifo* const fifo = g_fifo_new(4);
    faults.disarm();
    EXPECT_EQ(fifo == nullptr, faults.failures() != 0);
    if (fifo != nullptr) g_fifo_free(fifo);
  });
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Fifo, NullIsReportedAndCountsAsBothEmptyAndFull) {
  LogCapture log;
  const Lines expected{check_line("g_fifo", "fifo != NULL")};
  g_fifo_free(nullptr);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_empty(nullptr), 1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_full(nullptr), 1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_put(nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_get(nullptr), nullptr);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_flush(nullptr), -1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_count(nullptr), -1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_avail(nullptr), -1);
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_fifo_size(nullptr), -1);
  EXPECT_EQ(log.take(), expected);
}

TEST_F(FifoTest, NullElementReportsTheCheckAndChangesNothing) {
  make(1);
  LogCapture log;
  EXPECT_EQ(g_fifo_put(fifo, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_fifo", "_data != NULL")});
  EXPECT_EQ(g_fifo_count(fifo), 0);
  // Also when the ring is full.
  g_fifo_put(fifo, number(1));
  EXPECT_EQ(g_fifo_put(fifo, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_fifo", "_data != NULL")});
}

TEST_F(FifoTest, CapacityOneHoldsOneElement) {
  make(1);
  LogCapture log;
  EXPECT_EQ(g_fifo_put(fifo, number(1)), 0);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(g_fifo_put(fifo, number(2)), -1);
  EXPECT_EQ(log.take(), full_line(fifo));
  EXPECT_EQ(g_fifo_get(fifo), number(1));
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(g_fifo_get(fifo), nullptr);
  EXPECT_EQ(log.take(), empty_line(fifo));
}

TEST_F(FifoTest, WhenFullNothingIsOverwritten) {
  make(3);
  LogCapture log;
  for (uintptr_t i = 1; i <= 3; ++i) EXPECT_EQ(g_fifo_put(fifo, number(i)), 0);
  EXPECT_EQ(g_fifo_full(fifo), 1);
  EXPECT_EQ(g_fifo_avail(fifo), 0);
  EXPECT_EQ(g_fifo_put(fifo, number(4)), -1);
  EXPECT_EQ(g_fifo_count(fifo), 3);
  EXPECT_EQ(ring_of(fifo).write_index, 0);
  for (uintptr_t i = 1; i <= 3; ++i) EXPECT_EQ(g_fifo_get(fifo), number(i));
  EXPECT_EQ(g_fifo_empty(fifo), 1);
}

TEST_F(FifoTest, ElementsKeepTheirOrderAcrossTheWrap) {
  make(3);
  for (uintptr_t i = 1; i <= 3; ++i) g_fifo_put(fifo, number(i));
  for (uintptr_t i = 1; i <= 3; ++i) EXPECT_EQ(g_fifo_get(fifo), number(i));
  for (uintptr_t i = 4; i <= 5; ++i) g_fifo_put(fifo, number(i));
  EXPECT_EQ(ring_of(fifo).slots[0], number(4));
  EXPECT_EQ(ring_of(fifo).slots[1], number(5));
  EXPECT_EQ(g_fifo_get(fifo), number(4));
  for (uintptr_t i = 6; i <= 7; ++i) g_fifo_put(fifo, number(i));
  for (uintptr_t i = 5; i <= 7; ++i) EXPECT_EQ(g_fifo_get(fifo), number(i));
}

TEST_F(FifoTest, ATakenSlotIsNotCleared) {
  make(2);
  g_fifo_put(fifo, number(1));
  g_fifo_get(fifo);
  EXPECT_EQ(ring_of(fifo).slots[0], number(1));
  EXPECT_EQ(ring_of(fifo).read_index, 1);
}

TEST_F(FifoTest, FlushFreesTheElementsAndLogsNothing) {
  make(4);
  AllocationFaults blocks(0);
  for (int i = 0; i < 4; ++i) g_fifo_put(fifo, std::malloc(8));
  blocks.disarm();
  LogCapture log;
  EXPECT_EQ(g_fifo_flush(fifo), 0);
  EXPECT_EQ(blocks.outstanding(), 0);
  EXPECT_EQ(g_fifo_empty(fifo), 1);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(FifoTest, FlushOfAnEmptyRingReturnsZeroSilently) {
  make(4);
  LogCapture log;
  EXPECT_EQ(g_fifo_flush(fifo), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FifoFree, LeavesTheElementsAlone) {
  AllocationFaults blocks(0);
  GFifo* const fifo = g_fifo_new(4);
  void* const element = std::malloc(8);
  g_fifo_put(fifo, element);
  g_fifo_free(fifo);
  blocks.disarm();
  EXPECT_EQ(blocks.outstanding(), 1);
  std::free(element);
}

TEST(Fifo, AgreesWithADequeOverRandomOperations) {
  LogCapture log(99);
  std::mt19937 random(4);
  for (const int size : {1, 2, 3, 7, 64}) {
    GFifo* const fifo = g_fifo_new(size);
    std::deque<void*> model;
    for (uintptr_t step = 1; step < 20000; ++step) {
      // Phases that tend to fill and phases that tend to drain.
      if (random() % 16 < (step / 500 % 2 == 0 ? 9u : 7u)) {
        const bool fits = static_cast<int>(model.size()) < size;
        ASSERT_EQ(g_fifo_put(fifo, number(step)), fits ? 0 : -1);
        if (fits) model.push_back(number(step));
      } else {
        void* const expected = model.empty() ? nullptr : model.front();
        ASSERT_EQ(g_fifo_get(fifo), expected);
        if (!model.empty()) model.pop_front();
      }
      const int count = static_cast<int>(model.size());
      ASSERT_EQ(g_fifo_count(fifo), count);
      ASSERT_EQ(g_fifo_avail(fifo), size - count);
      ASSERT_EQ(g_fifo_empty(fifo), count == 0 ? 1 : 0);
      ASSERT_EQ(g_fifo_full(fifo), count == size ? 1 : 0);
      const Ring& ring = ring_of(fifo);
      ASSERT_EQ((ring.write_index - ring.read_index + size) % size, count % size);
    }
    g_fifo_free(fifo);
  }
}

// --- threads ---

void yield_now() {
  std::this_thread::yield();
}

// Passes numbered blocks through the ring; each end waits for the other by asking.
void pass_blocks(int size, uint32_t total) {
  GFifo* const fifo = g_fifo_new(size);
  ASSERT_NE(fifo, nullptr);
  LogCapture log;
  std::thread producer([&] {
    for (uint32_t i = 0; i < total; ++i) {
      auto* const block = static_cast<uint32_t*>(std::malloc(2 * sizeof(uint32_t)));
      block[0] = i;
      block[1] = ~i;
      while (g_fifo_full(fifo) != 0) yield_now();
      ASSERT_EQ(g_fifo_put(fifo, block), 0);
    }
  });
  uint32_t wrong = 0;
  for (uint32_t i = 0; i < total; ++i) {
    while (g_fifo_empty(fifo) != 0) yield_now();
    auto* const block = static_cast<uint32_t*>(g_fifo_get(fifo));
    if (block == nullptr || block[0] != i || block[1] != ~i) ++wrong;
    std::free(block);
  }
  producer.join();
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(g_fifo_count(fifo), 0);
  EXPECT_EQ(log.take(), Lines{});
  g_fifo_free(fifo);
}

#if defined(__SANITIZE_THREAD__) || !(defined(__i386__) || defined(__x86_64__))
constexpr bool kSlow = true;
#else
constexpr bool kSlow = false;
#endif

TEST(FifoThreads, OneProducerAndOneConsumerPassEveryBlockInOrder) {
  constexpr uint32_t kTotal = kSlow ? 200000 : 2000000;
  pass_blocks(4096, kTotal);
  pass_blocks(2, 1000);
  pass_blocks(1, 500);
}

TEST(FifoThreads, AFifoMayBeFlushedWhileItIsFilled) {
  GFifo* const fifo = g_fifo_new(1024);
  LogCapture log;
  std::atomic<bool> done{false};
  std::optional<AllocationFaults> blocks;
  std::thread producer([&] {
    blocks.emplace(0);
    for (int i = 0; i < 20000; ++i) {
      while (g_fifo_full(fifo) != 0) yield_now();
      g_fifo_put(fifo, std::malloc(8));
    }
    blocks->disarm();
    done = true;
  });
  while (!done) EXPECT_EQ(g_fifo_flush(fifo), 0);
  producer.join();
  EXPECT_EQ(g_fifo_flush(fifo), 0);
  EXPECT_EQ(g_fifo_empty(fifo), 1);
  EXPECT_EQ(blocks->calls(), 20000);
  EXPECT_EQ(blocks->outstanding(), 0);
  EXPECT_EQ(log.take(), Lines{});
  g_fifo_free(fifo);
}

// Whether an element enters or leaves while the mutex is held. It should not, however long
// the producer and the consumer get to run.
bool changes_while_locked(GFifo* fifo) {
  auto* const mutex = static_cast<GMutex*>(ring_of(fifo).mutex);
  g_thread_mutex_lock(mutex);
  const int count = g_fifo_count(fifo);
  const int32_t write_index = ring_of(fifo).write_index;
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  const bool changes =
      g_fifo_count(fifo) != count || ring_of(fifo).write_index != write_index;
  g_thread_mutex_unlock(mutex);
  return changes;
}

TEST(FifoThreads, TheStateMayBeAskedForAtAnyTime) {
  constexpr uintptr_t kTotal = kSlow ? 20000 : 200000;
  GFifo* const fifo = g_fifo_new(8);
  LogCapture log;
  std::atomic<bool> done{false};
  std::thread producer([&] {
    for (uintptr_t i = 1; i <= kTotal; ++i) {
      while (g_fifo_full(fifo) != 0) yield_now();
      g_fifo_put(fifo, number(i));
    }
  });
  uintptr_t wrong = 0;
  std::thread consumer([&] {
    for (uintptr_t i = 1; i <= kTotal; ++i) {
      while (g_fifo_empty(fifo) != 0) yield_now();
      if (g_fifo_get(fifo) != number(i)) ++wrong;
    }
    done = true;
  });
  int changes = 0;
  for (int round = 0; !done; ++round) {
    const int count = g_fifo_count(fifo);
    EXPECT_TRUE(count >= 0 && count <= 8);
    const int avail = g_fifo_avail(fifo);
    EXPECT_TRUE(avail >= 0 && avail <= 8);
    EXPECT_EQ(g_fifo_size(fifo), 8);
    if (round < 30) {
      changes += changes_while_locked(fifo) ? 1 : 0;
    } else {
      yield_now();
    }
  }
  producer.join();
  consumer.join();
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(g_fifo_count(fifo), 0);
  EXPECT_EQ(log.take(), Lines{});
  g_fifo_free(fifo);
}

TEST_F(FifoTest, TheStateIsReadWithoutTheMutexThatPutAndGetWaitFor) {
  make(2);
  g_fifo_put(fifo, number(1));
  auto* const mutex = static_cast<GMutex*>(ring_of(fifo).mutex);
  std::atomic<int> done{0};
  g_thread_mutex_lock(mutex);
  EXPECT_EQ(g_fifo_empty(fifo), 0);
  EXPECT_EQ(g_fifo_full(fifo), 0);
  EXPECT_EQ(g_fifo_count(fifo), 1);
  EXPECT_EQ(g_fifo_avail(fifo), 1);
  EXPECT_EQ(g_fifo_size(fifo), 2);
  std::atomic<int> begun{0};
  std::thread producer([&] {
    ++begun;
    g_fifo_put(fifo, number(2));
    ++done;
  });
  std::thread consumer([&] {
    ++begun;
    g_fifo_get(fifo);
    ++done;
  });
  while (begun != 2) yield_now();
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(done, 0);
  g_thread_mutex_unlock(mutex);
  producer.join();
  consumer.join();
  EXPECT_EQ(g_fifo_get(fifo), number(2));
}

// Also when refused: the mutex is not taken for the question.
TEST_F(FifoTest, FullAndEmptyAreRefusedWithoutTheMutex) {
  make(1);
  LogCapture log;
  auto* const mutex = static_cast<GMutex*>(ring_of(fifo).mutex);
  g_thread_mutex_lock(mutex);
  EXPECT_EQ(g_fifo_get(fifo), nullptr);
  EXPECT_EQ(log.take(), empty_line(fifo));
  g_thread_mutex_unlock(mutex);
  g_fifo_put(fifo, number(1));
  g_thread_mutex_lock(mutex);
  EXPECT_EQ(g_fifo_put(fifo, number(2)), -1);
  EXPECT_EQ(log.take(), full_line(fifo));
  g_thread_mutex_unlock(mutex);
}

TEST(FifoThreads, ConsumersThatDoNotTakeTurnsGetTheElementOnce) {
  GFifo* const fifo = g_fifo_new(2);
  LogCapture log;
  auto* const mutex = static_cast<GMutex*>(ring_of(fifo).mutex);
  g_fifo_put(fifo, number(1));
  std::atomic<int> begun{0};
  std::atomic<int> taken{0};
  const auto get = [&] {
    ++begun;
    if (g_fifo_get(fifo) == number(1)) ++taken;
  };
  // Both see the element, then wait for the mutex.
  g_thread_mutex_lock(mutex);
  std::thread first(get);
  std::thread second(get);
  while (begun != 2) yield_now();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  g_thread_mutex_unlock(mutex);
  first.join();
  second.join();
  EXPECT_EQ(taken, 1);
  EXPECT_EQ(g_fifo_count(fifo), 0);
  EXPECT_EQ(log.take(), empty_line(fifo));
  g_fifo_free(fifo);
}

TEST(FifoThreads, ProducersThatDoNotTakeTurnsCannotOverfillTheRing) {
  GFifo* const fifo = g_fifo_new(1);
  LogCapture log;
  auto* const mutex = static_cast<GMutex*>(ring_of(fifo).mutex);
  std::atomic<int> begun{0};
  std::atomic<int> stored{0};
  const auto put = [&] {
    ++begun;
    if (g_fifo_put(fifo, number(1)) == 0) ++stored;
  };
  // Both see the free slot, then wait for the mutex.
  g_thread_mutex_lock(mutex);
  std::thread first(put);
  std::thread second(put);
  while (begun != 2) yield_now();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  g_thread_mutex_unlock(mutex);
  first.join();
  second.join();
  EXPECT_EQ(stored, 1);
  EXPECT_EQ(g_fifo_count(fifo), 1);
  EXPECT_EQ(log.take(), full_line(fifo));
  g_fifo_free(fifo);
}

}  // namespace
