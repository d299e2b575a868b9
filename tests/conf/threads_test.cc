// Reads, writes and removals from several threads.
//
// SPDX-License-Identifier: MIT

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "conf/conf_support.h"

using namespace test;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 400;

template <typename Work>
void on_threads(Work work) {
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([work, number] { work(number); });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(ConfThreads, WritesReadsAndRemovalsOfOwnKeysKeepTheListsWhole) {
  const ConfFile file;
  const Conf conf = file.open();
  on_threads([&](int number) {
    const std::string prefix = "t" + std::to_string(number) + "-";
    for (int round = 0; round < kRounds; ++round) {
      const std::string key = prefix + std::to_string(round);
      const std::string section = "s" + std::to_string(round % 3);
      g_conf_write_int(conf.get(), section.c_str(), key.c_str(), round);
      EXPECT_EQ(g_conf_read_int(conf.get(), section.c_str(), key.c_str(), -1), round);
      EXPECT_EQ(g_conf_read_string(conf.get(), section.c_str(), "none", nullptr), nullptr);
      if (round % 2 == 0) g_conf_remove_key(conf.get(), section.c_str(), key.c_str());
      if (round % 50 == 0) g_conf_remove_section(conf.get(), (prefix + "own").c_str());
      g_conf_write_double(conf.get(), (prefix + "own").c_str(), "d", round);
    }
  });
  size_t keys = 0;
  for (const auto& [name, entries] : content(conf.get())) {
    if (name[0] == 's') keys += entries.size();
  }
  EXPECT_EQ(keys, size_t{kThreads} * kRounds / 2);
  EXPECT_EQ(conf->dirty, 1);
}

TEST(ConfThreads, TypedReadsOfAKeyThatOthersWriteSeeOneOfTheWholeValues) {
  const ConfFile file("[s]\nk=1111111\nb=TRUE\n");
  const Conf conf = file.open();
  std::atomic<bool> enough{false};
  std::atomic<int> rounds{0};
  std::thread writer([&] {
    for (int round = 0; !enough; rounds = ++round) {
      g_conf_write_int(conf.get(), "s", "k", round % 2 == 0 ? 1111111 : 22);
      g_conf_write_boolean(conf.get(), "s", "b", round % 2);
    }
  });
  int reads_of[2] = {};
  // Until both values were read while the other thread wrote, and often.
  for (int read = 0;
       read < kRounds * 10 || rounds < kRounds || reads_of[0] == 0 || reads_of[1] == 0;
       ++read) {
    const int value = g_conf_read_int(conf.get(), "s", "k", -1);
    EXPECT_TRUE(value == 1111111 || value == 22) << value;
    ++reads_of[value == 22 ? 1 : 0];
    const double number = g_conf_read_double(conf.get(), "s", "k", -1);
    EXPECT_TRUE(number == 1111111 || number == 22) << number;
    EXPECT_NE(g_conf_read_boolean(conf.get(), "s", "b", -1), -1);
  }
  enough = true;
  writer.join();
}

TEST(ConfThreads, UnlockedLookUpsAgreeWhileNobodyChangesTheConf) {
  std::string text = "[s]\n";
  for (int key = 0; key < 100; ++key) text += "k" + std::to_string(key) + "=v\n";
  const ConfFile file(text);
  const Conf conf = file.open();
  // Also in a list that a program has changed.
  GConfSection* const section = g_find_section(conf.get(), "s");
  section->entries = g_list_reverse(section->entries);
  on_threads([&](int) {
    for (int key = 0; key < 100; ++key) {
      EXPECT_NE(
          g_find_line(g_find_section(conf.get(), "S"), ("K" + std::to_string(key)).c_str()),
          nullptr);
      EXPECT_EQ(g_find_line(section, "none"), nullptr);
    }
  });
}

// Whether a thread of this process waits for something.
bool is_asleep(long thread) {
  if (thread == 0) return false;
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text);
  const size_t name_end = text.rfind(')');
  return name_end != std::string::npos && text.compare(name_end, 4, ") S ") == 0;
}

TEST(ConfThreads, ReadsWritesAndRemovalsWaitForTheMutexAndGiveItBack) {
  const ConfFile file("[s]\nk=1\nl=2\n[t]\nm=3\n");
  const Conf conf = file.open();
  const auto expect_waits = [&](const char* name, auto call) {
    SCOPED_TRACE(name);
    ASSERT_EQ(g_thread_mutex_lock(conf->mutex), 0);
    std::atomic<long> caller_id{0};
    std::atomic<bool> done{false};
    std::thread caller([&] {
      caller_id = syscall(SYS_gettid);
      call(conf.get());
      done = true;
    });
    // However long it takes to get that far.
    while (!done && !is_asleep(caller_id)) std::this_thread::yield();
    EXPECT_FALSE(done);
    g_thread_mutex_unlock(conf->mutex);
    caller.join();
    EXPECT_TRUE(done);
  };
  expect_waits("string", [](GConf* c) { g_conf_read_string(c, "s", "k", ""); });
  expect_waits("int", [](GConf* c) { g_conf_read_int(c, "s", "k", 0); });
  expect_waits("boolean", [](GConf* c) { g_conf_read_boolean(c, "s", "k", 0); });
  expect_waits("float", [](GConf* c) { g_conf_read_float(c, "s", "k", 0); });
  expect_waits("double", [](GConf* c) { g_conf_read_double(c, "s", "k", 0); });
  expect_waits("missing", [](GConf* c) { g_conf_read_int(c, "none", "k", 0); });
  expect_waits("write", [](GConf* c) { g_conf_write_int(c, "s", "k", 5); });
  expect_waits("equal", [](GConf* c) { g_conf_write_int(c, "s", "k", 5); });
  expect_waits("key", [](GConf* c) { g_conf_remove_key(c, "s", "k"); });
  expect_waits("no key", [](GConf* c) { g_conf_remove_key(c, "s", "k"); });
  expect_waits("section", [](GConf* c) { g_conf_remove_section(c, "t"); });
  expect_waits("no section", [](GConf* c) { g_conf_remove_section(c, "t"); });
  EXPECT_EQ(g_thread_mutex_lock(conf->mutex), 0);  // the last one gave it back too
  g_thread_mutex_unlock(conf->mutex);
}

TEST(ConfThreads, SyncRegistrationAndPlainLookUpsTakeNoLock) {
  const ConfFile file("[s]\nk=1\n");
  const Conf conf = file.open();
  g_conf_write_int(conf.get(), "s", "k", 2);
  ASSERT_EQ(g_thread_mutex_lock(conf->mutex), 0);
  EXPECT_NE(g_find_line(g_find_section(conf.get(), "s"), "k"), nullptr);
  const auto nothing = [](const GConfChange*, void*) { return 0; };
  EXPECT_EQ(g_conf_register_callback(conf.get(), "s", "k", nothing, nullptr), 0);
  g_conf_sync(conf.get());
  EXPECT_EQ(file.text(), "[s]\nk=2\n\n");
  g_thread_mutex_unlock(conf->mutex);
}

std::atomic<int> runs{0};
std::atomic<int> runs_elsewhere{0};
thread_local int own_number = -1;

TEST(ConfThreads, CallbacksRunOnTheThreadThatWrites) {
  const ConfFile file;
  const Conf conf = file.open();
  runs = 0;
  runs_elsewhere = 0;
  const auto count = [](const GConfChange* change, void*) {
    ++runs;
    if (std::stoi(change->value) / kRounds != own_number) ++runs_elsewhere;
    return 0;
  };
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "k", count, nullptr), 0);
  on_threads([&](int number) {
    own_number = number;
    for (int round = 0; round < kRounds; ++round) {
      // No two values are equal.
      g_conf_write_int(conf.get(), "s", "k", number * kRounds + round);
    }
  });
  EXPECT_EQ(runs, kThreads * kRounds);
  EXPECT_EQ(runs_elsewhere, 0);
}

TEST(ConfThreads, ConfsAreOpenedAndClosedSimultaneously) {
  const ConfFile file("[s]\nk=1\n");
  on_threads([&](int) {
    for (int round = 0; round < 50; ++round) {
      EXPECT_EQ(g_conf_read_int(file.open().get(), "s", "k", 0), 1);
    }
  });
}

TEST(ConfThreads, TheDefaultPathIsMadeOnce) {
  const TemporaryDirectory directory;
  char original[4096];
  ASSERT_NE(getcwd(original, sizeof original), nullptr);
  ASSERT_EQ(chdir(directory.path().c_str()), 0);
  directory.write(".conf", "[s]\n");
  on_threads([&](int) {
    const Conf conf(g_conf_open(nullptr));
    ASSERT_NE(conf, nullptr);
    EXPECT_STREQ(conf->filename, "./.conf");
  });
  ASSERT_EQ(chdir(original), 0);
}

// Runs the work on a thread with a request for its cancellation pending, and expects that
// it got to its end and may be cancelled again. The request is not let through then: a
// sanitizer loses track of the stack of a cancelled thread.
template <typename Work>
void run_while_cancelled(Work work) {
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void* argument) -> void* {
                  pthread_cancel(pthread_self());
                  (*static_cast<Work*>(argument))();
                  int state = PTHREAD_CANCEL_DISABLE;
                  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
                  return state == PTHREAD_CANCEL_ENABLE ? argument : nullptr;
                },
                &work),
            0);
  void* result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(result, &work);
}

TEST(ConfThreads, ACancelledThreadWritesItsFileToTheEnd) {
  const ConfFile file;
  const Conf conf = file.open();
  g_conf_write_int(conf.get(), "s", "k", 1);
  run_while_cancelled([&] { g_conf_sync(conf.get()); });
  EXPECT_EQ(conf->dirty, 0);
  EXPECT_EQ(file.text(), "[s]\nk=1\n\n");
}

TEST(ConfThreads, ACancelledThreadOpensItsConfToTheEnd) {
  const ConfFile file("[s]\nk=v\n");
  GConf* conf = nullptr;
  run_while_cancelled([&] { conf = g_conf_open(file.path().c_str()); });
  ASSERT_NE(conf, nullptr);
  EXPECT_EQ(content(conf), (Sections{{"s", {{"k", "v"}}}}));
  EXPECT_EQ(g_conf_close(conf), 0);
}

}  // namespace
