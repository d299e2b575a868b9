// Saves and reloads beside writes, and beside other saves of the same file.
//
// SPDX-License-Identifier: MIT

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "safe/conf_support.h"

using namespace test;

namespace {

// A file that is replaced by one of another size just then is not loaded: tries again.
Conf open_while_others_save(const ConfFile& file) {
  for (;;) {
    Conf conf(g_conf_open(file.path().c_str()));
    if (conf != nullptr) return conf;
  }
}

TEST(ConfSaveThreads, WhatIsWrittenDuringASaveIsSavedOrLeavesTheConfDirty) {
  std::string text = "#c\n[s]\n";
  for (int key = 0; key < 500; ++key) text += "k" + std::to_string(key) + " = 0\n";
  const ConfFile file(text);
  const Conf conf = file.open();
  for (int round = 1; round <= 60; ++round) {
    const std::string value = std::to_string(round);
    set(conf.get(), "s", "k7", value.c_str());
    std::thread writer([&] {
      for (const char* const key : {"k0", "k499", "k250", "new"}) {
        set(conf.get(), "s", key, value.c_str());
      }
    });
    EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
    writer.join();
    if (conf->dirty == 0) {
      EXPECT_EQ(readings(file.open().get()), readings(conf.get())) << "round " << round;
    }
    EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
    EXPECT_EQ(readings(file.open().get()), readings(conf.get())) << "round " << round;
  }
}

TEST(ConfSaveThreads, SavesOfOneConfWaitForEachOther) {
  std::string text = "[s]\na=0\nb=0\n[many]\n";
  for (int key = 0; key < 2000; ++key) text += "k" + std::to_string(key) + "=a value\n";
  const ConfFile file(text);
  const Conf conf = file.open();
  std::vector<std::thread> threads;
  for (const char* const key : {"a", "b", "c"}) {
    threads.emplace_back([&, key] {
      for (int round = 1; round <= 40; ++round) {
        set(conf.get(), "s", key, std::to_string(round).c_str());
        EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
        // Saved by this thread or by another, it is in the file.
        const Conf now = open_while_others_save(file);
        EXPECT_EQ(g_conf_read_int(now.get(), "s", key, -1), round);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(readings(file.open().get()), readings(conf.get()));
}

// Adds 1 to a key of a file that others change, too.
void count_up(const ConfFile& file, int times) {
  const Conf conf = open_while_others_save(file);
  while (times > 0) {
    const int now = g_conf_read_int(conf.get(), "s", "count", 0);
    g_conf_write_int(conf.get(), "s", "count", now + 1);
    if (g_conf_save(conf.get(), 0) == 0) {
      --times;
      continue;
    }
    EXPECT_EQ(errno, ESTALE);
    conf->dirty = 0;
    EXPECT_GE(g_conf_reload(conf.get()), 0);
  }
}

TEST(ConfSaveThreads, TwoProgramsThatSaveTheSameFileLoseNoChange) {
  const ConfFile file("#c\n[s]\ncount = 0\n");
  std::vector<std::thread> threads;
  for (int number = 0; number < 3; ++number) {
    threads.emplace_back([&file] { count_up(file, 200); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(file.text(), "#c\n[s]\ncount = 600\n");
}

TEST(ConfReloadThreads, ReadersSeeOldOrNewValuesOfAFileThatIsReloaded) {
  const ConfFile file("[s]\nk=1111111\n");
  const Conf conf = file.open();
  std::atomic<bool> done{false};
  std::thread reader([&] {
    while (!done) {
      const int value = g_conf_read_int(conf.get(), "s", "k", -1);
      EXPECT_TRUE(value == 1111111 || value == 22 || value == -1) << value;
    }
  });
  for (int round = 0; round < 200; ++round) {
    const std::string text = round % 3 == 0   ? "[s]\nk=22\n"
                             : round % 3 == 1 ? "[t]\n"
                                              : "[s]\nk=1111111\n";
    ASSERT_EQ(
        g_file_replace(file.path().c_str(), text.data(), static_cast<int64_t>(text.size())),
        0);
    EXPECT_EQ(g_conf_reload(conf.get()), 1);
  }
  done = true;
  reader.join();
}

[[gnu::noinline]] void expect_save(GConf* conf) {
  EXPECT_EQ(g_conf_save(conf, 0), 0);
}

TEST(ConfReloadThreads, AWriteDuringAReloadIsNotUndone) {
  std::string text = "[s]\nk=0\n[many]\n";
  for (int key = 0; key < 500; ++key) text += "k" + std::to_string(key) + "=a value\n";
  const ConfFile file(text);
  const Conf conf = file.open();
  std::atomic<bool> done{false};
  std::thread reloader([&] {
    while (!done) {
      const int result = g_conf_reload(conf.get());
      EXPECT_TRUE(result == 0 || (result == -1 && errno == EBUSY)) << result;
    }
  });
  for (int round = 1; round <= 300; ++round) {
    g_conf_write_int(conf.get(), "s", "k", round);
    EXPECT_EQ(g_conf_read_int(conf.get(), "s", "k", -1), round);
    EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
    EXPECT_EQ(g_conf_read_int(conf.get(), "s", "k", -1), round);
  }
  done = true;
  reloader.join();
  EXPECT_EQ(g_conf_read_int(file.open().get(), "s", "k", -1), 300);
}

TEST(ConfSaveThreads, ACancelledThreadFinishesItsSave) {
  const ConfFile file("#c\n[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  pthread_t thread;
  // No locals here: their destructors would not run.
  const auto run = [](void* own) -> void* {
    pthread_cancel(pthread_self());
    expect_save(static_cast<GConf*>(own));
    pthread_testcancel();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, run, conf.get()), 0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_EQ(file.text(), "#c\n[s]\na=2\n");
  EXPECT_EQ(conf->dirty, 0);
  EXPECT_FALSE(access((file.directory() / ".test.conf.new").c_str(), F_OK) == 0);
}

}  // namespace
