// Functions that keep no state may run on any number of threads simultaneously: here those
// of each module run on several threads, each with its own data. The thread sanitizer
// reports any state that they share after all.
//
// SPDX-License-Identifier: MIT

#include <groundwork/groundwork.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/temporary_directory.h"

namespace {

constexpr int kThreads = 4;
constexpr int kTurns = 50;

// Runs `turn(thread, number)` many times on each thread.
template <typename Turn>
void side_by_side(Turn turn) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([turn, thread] {
      for (int number = 0; number < kTurns; ++number) turn(thread, number);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(SideBySide, StringsAreMadeTrimmedAndSplit) {
  side_by_side([](int thread, int number) {
    char* const text =
        g_strdup_printf("  %d:%s:%4.1f:%lld \n", thread, "x", 1.5, 7LL + number);
    char* const copy = g_strdup(g_strchomp(g_strchug(text)));
    char** const pieces = g_strsplit(copy, ":", 0);
    EXPECT_EQ(std::atoi(pieces[0]), thread);
    EXPECT_EQ(std::atoi(pieces[3]), 7 + number);
    EXPECT_EQ(g_str_has_prefix(copy, pieces[0]), 1);
    g_strfreev(pieces);
    std::free(copy);
    std::free(text);
  });
}

TEST(SideBySide, BlocksAreAllocatedResizedAndCopied) {
  side_by_side([](int thread, int number) {
    const auto size = static_cast<unsigned>(1 + thread + number);
    void* block = g_realloc(g_malloc0(size), 2 * size);
    void* copy = g_memdup(block, size);
    EXPECT_EQ(std::memcmp(block, copy, size), 0);
    g_freep(&block);
    g_freep(&copy);
    EXPECT_EQ(block, nullptr);
  });
}

TEST(SideBySide, EachThreadHasATableAListAndCallbacksOfItsOwn) {
  side_by_side([](int thread, int number) {
    GHash* const table = g_hash_new(4, g_hash_int, g_hash_int_equal, nullptr);
    int keys[20];
    GList* list = nullptr;
    for (int i = 0; i < 20; ++i) {
      keys[i] = i * (thread + 1) + number;
      g_hash_insert(table, &keys[i], &keys[i]);
      list = g_list_append(list, &keys[i]);
    }
    EXPECT_EQ(g_hash_find(table, &keys[7]), &keys[7]);
    EXPECT_EQ(g_list_index(list, &keys[7]), 7);
    g_list_free(list);
    g_hash_free(table);
    GCallback* const callbacks = g_callback_new();
    const auto count = [](void* argument, void*) {
      ++*static_cast<int*>(argument);
      return 0;
    };
    g_callback_add(callbacks, count, nullptr, 1);
    int calls = 0;
    EXPECT_EQ(g_callback_execute(callbacks, &calls), 0);
    EXPECT_EQ(calls, 1);
    g_callback_free(callbacks);
  });
}

TEST(SideBySide, FilesAreWrittenCopiedAndRead) {
  const test::TemporaryDirectory directory;
  side_by_side([&directory](int thread, int) {
    const std::string path = directory / ("file" + std::to_string(thread));
    const std::string copy = path + ".copy";
    GFile* const file = g_file_open(path.c_str(), 2);
    EXPECT_EQ(g_file_lock_write(file), 0);
    EXPECT_EQ(g_file_write(file, "some text", 9), 9);
    g_file_unlock(file);
    g_file_close(file);
    EXPECT_EQ(g_file_copy(path.c_str(), copy.c_str()), 0);
    int64_t length = 0;
    char* const text = g_file_read_buf(copy.c_str(), &length);
    EXPECT_EQ(length, 9);
    std::free(text);
    EXPECT_EQ(g_file_size(copy.c_str()), 9);
    EXPECT_EQ(g_file_remove(copy.c_str()), 0);
    EXPECT_GT(g_file_map_page_size(), 0);
  });
}

TEST(SideBySide, DirectoriesAreMadeListedAndRemoved) {
  const test::TemporaryDirectory directory;
  side_by_side([&directory](int thread, int) {
    const std::string top = directory / ("top" + std::to_string(thread)) + "/";
    std::string path = top + "one/two/";
    EXPECT_EQ(g_mkdir(path.data()), 0);
    EXPECT_EQ(g_dir_exist(path.c_str()), 1);
    int count = 0;
    g_dir_list_free(g_dir_list(top.c_str(), 0, &count));
    EXPECT_GT(count, 0);
    EXPECT_EQ(g_rmdir(top.c_str()), 0);
  });
}

TEST(SideBySide, FiguresOfTheSystemAreAskedFor) {
  side_by_side([](int, int) {
    uint32_t total = 0;
    uint32_t available = 0;
    g_sys_get_filesystem_usage("/", &total, &available);
    EXPECT_GT(total, 0u);
    g_sys_mem_use();
    g_sys_cpu_load(0);
  });
}

#ifdef GROUNDWORK_TESTS_CRYPT
TEST(SideBySide, Base64IsMadeAndRead) {
  side_by_side([](int thread, int number) {
    const unsigned char bytes[3] = {static_cast<unsigned char>(thread),
                                    static_cast<unsigned char>(number), 7};
    char text[8];
    unsigned char decoded[8];
    EXPECT_EQ(g_crypt_base64_encode(bytes, text, 3), 4);
    EXPECT_EQ(g_crypt_base64_decode(text, decoded), 3);
    EXPECT_EQ(std::memcmp(bytes, decoded, 3), 0);
  });
}
#endif

}  // namespace
