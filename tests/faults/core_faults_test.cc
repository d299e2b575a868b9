// Logging, checked allocation, package name.
//
// SPDX-License-Identifier: MIT

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <groundwork/groundwork.h>

#include "faults/sweep.h"

using namespace faults;

namespace {

void allocate(Pass& pass) {
  void* const block = faulty(pass, [] { return g_malloc(100); });
  EXPECT_EQ(block == nullptr, pass.struck(Call::kAllocation) != 0);
  if (block == nullptr) {
    EXPECT_STREQ(pass.last_report(), "failed to allocate 100 bytes.");
  }
  std::free(block);
}

void allocate_zeros(Pass& pass) {
  void* block = faulty(pass, [] { return g_malloc0(100); });
  EXPECT_EQ(block == nullptr, pass.struck(Call::kAllocation) != 0);
  if (block != nullptr) {
    EXPECT_EQ(static_cast<char*>(block)[99], 0);
  } else {
    EXPECT_STREQ(pass.last_report(), "failed to allocate 100 bytes.");
  }
  faulty(pass, [&] {
    g_freep(&block);
    return 0;
  });
  EXPECT_EQ(block, nullptr);
}

void reallocate(Pass& pass) {
  auto* const block = static_cast<char*>(std::malloc(3));
  std::memcpy(block, "abc", 3);
  auto* const grown =
      static_cast<char*>(faulty(pass, [&] { return g_realloc(block, 5000); }));
  if (pass.struck(Call::kAllocation)) {
    EXPECT_EQ(grown, nullptr);
    EXPECT_STREQ(pass.last_report(), "failed to reallocate 5000 bytes.");
  } else {
    ASSERT_NE(grown, nullptr);
  }
  char* const now = grown != nullptr ? grown : block;  // the old one stays
  EXPECT_EQ(std::memcmp(now, "abc", 3), 0);
  std::free(now);
}

void duplicate(Pass& pass) {
  void* const copy = faulty(pass, [] { return g_memdup("abc", 4); });
  EXPECT_EQ(copy == nullptr, pass.struck(Call::kAllocation) != 0);
  if (copy != nullptr) {
    EXPECT_STREQ(static_cast<char*>(copy), "abc");
  }
  std::free(copy);
}

void profile(Pass& pass) {
  // The result that the handler returns.
  EXPECT_EQ(faulty(pass, [] { return g_mem_profile(); }), 0);
}

int answer_seven(const char*, void*) {
  return 7;
}

int log_list(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = g_logv(G_LOG_ERROR, "here", 1, format, args);
  va_end(args);
  return result;
}

void log_to_handler(Pass& pass) {
  int results[3];
  {
    const Faults faults(pass);
    g_debug_set_handler(answer_seven, nullptr);
    results[0] = g_log(G_LOG_WARNING, "here", 1, "%s %d", "text", 5);
    results[1] = log_list("%s", "text");
    results[2] = g_log(-1, "here", 1, "%s", "text");
    g_print("%s", "text");
    test_out();
  }
  // A line whose formatting fails is logged nevertheless.
  EXPECT_EQ(results[0], 7);
  EXPECT_EQ(results[1], 7);
  EXPECT_EQ(results[2], 1);
}

void log_to_stderr(Pass& pass) {
  int result = 0;
  {
    const Faults faults(pass);
    g_debug_set_handler(nullptr, nullptr);
    result = g_log(G_LOG_ERROR, "here", 1, "%s", "text");
    g_print("%s", "text");
  }
  // The result of the stream.
  if (pass.struck(Call::kFputs) == 0) {
    EXPECT_GE(result, 0);
  } else if (pass.and_all_later() && pass.struck(Call::kFputs) == 2) {
    EXPECT_EQ(result, EOF);
  }
}

void choose_level(Pass& pass) {
  int levels[2];
  {
    const Faults faults(pass);
    g_debug_init();
    levels[0] = g_debug_get_level();
    g_debug_set_level(0);
    g_debug_set_level2(2);
    levels[1] = g_debug_get_level();
  }
  // A marker whose status cannot be read does not count.
  if (pass.struck(Call::kStat) == 5) {
    EXPECT_EQ(levels[0], G_LOG_SILENT);
  }
  EXPECT_EQ(levels[1], 2);
}

void name_package(Pass& pass) {
  const char* const name = faulty(pass, [] { return g_package_set_name("sweep"); });
  EXPECT_STREQ(name, "sweep");
  EXPECT_STREQ(faulty(pass, [] { return g_package_set_name(""); }), "");
}

const Scenarios scenarios(
    "core",
    {
        {"Allocation", {"g_malloc"}, allocate},
        {"ZeroedAllocation", {"g_malloc0", "g_freep"}, allocate_zeros},
        {"Reallocation", {"g_realloc"}, reallocate},
        {"Duplicate", {"g_memdup"}, duplicate},
        {"HeapReport", {"g_mem_profile"}, profile},
        {"LogToAHandler",
         {"g_log", "g_logv", "g_print", "g_debug_set_handler", "test_out"},
         log_to_handler},
        {"LogToStandardError", {}, log_to_stderr},
        {"LevelByMarkers",
         {"g_debug_init", "g_debug_get_level", "g_debug_set_level", "g_debug_set_level2"},
         choose_level},
        {"PackageName", {"g_package_set_name"}, name_package},
    });

}  // namespace
