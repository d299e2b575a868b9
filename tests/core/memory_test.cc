// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/memory.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <malloc.h>

#include "support/allocation_faults.h"
#include "support/log_capture.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

TEST(Malloc, GivesABlockOfTheSizeAsked) {
  LogCapture log;
  AllocationFaults faults(0);
  void* const block = g_malloc(123);
  faults.disarm();
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(test::allocation_size(1), 123u);
  std::memset(block, 1, 123);
  std::free(block);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Malloc, ZeroSizeReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_malloc(0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_mem", "size > 0")});
  EXPECT_EQ(g_malloc0(0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_mem", "size > 0")});
}

TEST(Malloc, SilentThresholdChangesTheLineOnlyNotTheResult) {
  LogCapture log(99);
  EXPECT_EQ(g_malloc(0), nullptr);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Malloc, ExhaustedHeapIsReportedWithTheSize) {
  LogCapture log;
  {
    AllocationFaults faults(1);
    EXPECT_EQ(g_malloc(4000000000u), nullptr);
  }
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_mem", "failed to allocate 4000000000 bytes.")});
  {
    AllocationFaults faults(1);
    EXPECT_EQ(g_malloc0(17), nullptr);
  }
  EXPECT_EQ(log.take(), Lines{warning_line("g_mem", "failed to allocate 17 bytes.")});
}

TEST(Malloc0, FillsWithZeros) {
  void* const used = g_malloc(256);
  std::memset(used, 0xff, 256);
  std::free(used);
  auto* const block = static_cast<unsigned char*>(g_malloc0(256));
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(block[i], 0);
  std::free(block);
}

TEST(Malloc0, GivesABlockOfTheSizeAsked) {
  AllocationFaults faults(0);
  void* const block = g_malloc0(123);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 1);
  EXPECT_EQ(test::allocation_size(1), 123u);
  std::free(block);
}

TEST(Realloc, AsksForTheSizeGiven) {
  AllocationFaults faults(0);
  void* const block = g_realloc(g_realloc(nullptr, 10), 123);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 2);
  EXPECT_EQ(test::allocation_size(1), 10u);
  EXPECT_EQ(test::allocation_size(2), 123u);
  std::free(block);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(Realloc, KeepsTheContent) {
  LogCapture log;
  auto* block = static_cast<char*>(g_malloc(4));
  std::memcpy(block, "abc", 4);
  block = static_cast<char*>(g_realloc(block, 100000));
  ASSERT_NE(block, nullptr);
  EXPECT_STREQ(block, "abc");
  std::free(block);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Realloc, NullIsAFreshAllocation) {
  void* const block = g_realloc(nullptr, 10);
  EXPECT_NE(block, nullptr);
  std::free(block);
}

TEST(Realloc, ZeroSizeReportsTheCheckAndFreesNothing) {
  LogCapture log;
  auto* const block = static_cast<char*>(g_malloc(4));
  std::memcpy(block, "abc", 4);
  EXPECT_EQ(g_realloc(block, 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_mem", "size > 0")});
  EXPECT_STREQ(block, "abc");
  std::free(block);
}

TEST(Realloc, ExhaustedHeapIsReportedAndLeavesTheBlock) {
  LogCapture log;
  auto* const block = static_cast<char*>(g_malloc(4));
  std::memcpy(block, "abc", 4);
  {
    AllocationFaults faults(1);
    EXPECT_EQ(g_realloc(block, 500), nullptr);
  }
  EXPECT_EQ(log.take(), Lines{warning_line("g_mem", "failed to reallocate 500 bytes.")});
  EXPECT_STREQ(block, "abc");
  std::free(block);
}

TEST(Freep, FreesAndStoresNull) {
  AllocationFaults faults(0);
  void* block = g_malloc(4);
  g_freep(&block);
  faults.disarm();
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(faults.outstanding(), 0);
  g_freep(&block);
  EXPECT_EQ(block, nullptr);
}

TEST(Memdup, CopiesTheBytes) {
  const char source[] = {'a', 0, 'b', 'c'};
  void* const copy = g_memdup(source, 3);
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, source);
  EXPECT_EQ(std::memcmp(copy, source, 3), 0);
  std::free(copy);
}

TEST(Memdup, IsABlockOfTheSizeAsked) {
  AllocationFaults faults(0);
  void* const copy = g_memdup("abcdef", 5);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 1);
  EXPECT_EQ(test::allocation_size(1), 5u);
  std::free(copy);
}

TEST(Memdup, BadArgumentsReportTheFirstCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_memdup(nullptr, 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_mem", "mem != NULL")});
  EXPECT_EQ(g_memdup("a", 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_mem", "size > 0")});
}

TEST(Memdup, ExhaustedHeapIsReported) {
  LogCapture log;
  {
    AllocationFaults faults(1);
    EXPECT_EQ(g_memdup("abc", 4), nullptr);
  }
  EXPECT_EQ(log.take(), Lines{warning_line("g_mem", "failed to allocate 4 bytes.")});
}

TEST(MemProfile, LogsEightLinesAtLevelZero) {
  LogCapture log(0);
  EXPECT_EQ(g_mem_profile(), 0);  // the handler's result
  const Lines lines = log.take();
  const char* const expected[] = {
      "g_mem:#: CURRENT malloc INFORMATION",
      "g_mem:#:   total space allocated from system: ",
      "g_mem:#:   number of non-inuse chunks: ",
      "g_mem:#:   number of mmapped regions: ",
      "g_mem:#:   total space in mmapped regions: ",
      "g_mem:#:   total allocated space: ",
      "g_mem:#:   total non-inuse space: ",
      "g_mem:#:   top-most, releasable space:",
  };
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[0], expected[0]);
  for (size_t i = 1; i < 8; ++i) {
    const std::string text = expected[i];
    ASSERT_EQ(lines[i].substr(0, text.size()), text);
    const std::string number = lines[i].substr(text.size());
    EXPECT_EQ(std::to_string(std::atoi(number.c_str())), number);
  }
}

std::array<char[100], 8> profile;
size_t profile_lines = 0;

// Without the heap, whose figures it is about.
int keep_line(const char* text, void*) {
  if (profile_lines == profile.size()) return -1;
  std::snprintf(profile[profile_lines++], sizeof profile[0], "%s", text);
  return 50 + static_cast<int>(profile_lines);
}

// musl's heap keeps no figures.
struct HeapFigures {
  size_t arena, ordblks, hblks, hblkhd, uordblks, fordblks, keepcost;
};

auto heap_figures() {
#ifdef __GLIBC__
  return mallinfo2();
#else
  return HeapFigures{};
#endif
}

TEST(MemProfile, LogsEachFigureOfTheHeapAndReturnsTheLastResult) {
  LogCapture log(0);
  g_debug_set_handler(keep_line, nullptr);
  std::free(std::malloc(100));               // a free chunk
  void* const block = std::malloc(1 << 20);  // mapped
  const auto heap = heap_figures();
  profile_lines = 0;
  EXPECT_EQ(g_mem_profile(), 58);
  std::free(block);
  const size_t figures[] = {heap.arena,    heap.ordblks,  heap.hblks,   heap.hblkhd,
                            heap.uordblks, heap.fordblks, heap.keepcost};
  ASSERT_EQ(profile_lines, 8u);
  for (size_t i = 0; i < std::size(figures); ++i) {
    const std::string line = profile[i + 1];
    const std::string number = line.substr(line.find_last_not_of("-0123456789") + 1);
    EXPECT_EQ(number, std::to_string(static_cast<int>(figures[i]))) << line;
  }
}

TEST(MemProfile, SaysNothingAboveLevelZero) {
  LogCapture log(1);
  EXPECT_EQ(g_mem_profile(), 1);
  EXPECT_EQ(log.take(), Lines{});
}

}  // namespace
