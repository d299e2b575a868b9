// Every allocation fails in turn: the operation then has had no effect at all.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>

#include "conf/conf_support.h"
#include "support/allocation_faults.h"

using namespace test;

namespace {

// Logging in the tests' own handler would allocate, and so fail.
class Quiet {
 public:
  Quiet() { g_debug_set_level2(99); }
  ~Quiet() { g_debug_set_level2(3); }
};

std::string text_of(int keys) {
  std::string text = "[S]\n";
  for (int key = 0; key < keys; ++key) text += "key" + std::to_string(key) + "=v\n";
  return text + "key0=w\n[T]\nk=v\n";
}

TEST(ConfExhaustedMemory, AFileLoadsWholeOrNotAtAll) {
  const Quiet quiet;
  // Beyond 8 keys there is an index; without memory for it look-ups walk the list.
  for (const int keys : {3, 40}) {
    const ConfFile file(text_of(keys));
    for_each_failed_allocation([&](AllocationFaults& faults) {
      GConf* const conf = g_conf_open(file.path().c_str());
      faults.disarm();
      if (faults.failures() == 0) {
        ASSERT_NE(conf, nullptr);
      }
      if (conf == nullptr) return;
      const Keys found = keys_of(g_find_section(conf, "s"));
      EXPECT_EQ(found.size(), static_cast<size_t>(keys));
      EXPECT_EQ(found.front(), (Keys::value_type{"key0", "w"}));
      for (const auto& [key, value] : found) {
        EXPECT_NE(g_find_line(g_find_section(conf, "s"), key.c_str()), nullptr);
      }
      EXPECT_EQ(g_find_line(g_find_section(conf, "s"), "none"), nullptr);
      EXPECT_EQ(g_conf_close(conf), 0);
    });
  }
}

TEST(ConfExhaustedMemory, AFailedLoadNamesTheFile) {
  const ConfFile file(text_of(3));
  const std::string cannot_load =
      warning_line("g_conf", "can't load config file '" + file.path() + "'.");
  int failed = 0;
  for (int nth = 1; nth < 100; ++nth) {
    LogCapture log;
    AllocationFaults faults(nth);
    GConf* const conf = g_conf_open(file.path().c_str());
    faults.disarm();
    if (conf != nullptr) {
      g_conf_close(conf);
      continue;
    }
    ++failed;
    const Lines lines = log.take();
    EXPECT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.back(), cannot_load);
  }
  EXPECT_GT(failed, 5);
}

int runs = 0;
int count_run(const GConfChange*, void*) {
  ++runs;
  return 0;
}

TEST(ConfExhaustedMemory, ANewConfIsMadeWholeOrNotAtAll) {
  const Quiet quiet;
  const ConfFile file;
  for_each_failed_allocation([&](AllocationFaults& faults) {
    GConf* const conf = g_conf_open(file.path().c_str());
    faults.disarm();
    if (conf == nullptr) {
      EXPECT_GT(faults.failures(), 0);
      return;
    }
    // Without memory for the index of its table of callbacks, the conf works all the same.
    EXPECT_LE(faults.failures(), 1);
    runs = 0;
    EXPECT_EQ(g_conf_register_callback(conf, "net", "port", count_run, nullptr), 0);
    g_conf_write_string(conf, "net", "port", "a new one");
    EXPECT_EQ(runs, 1);
    EXPECT_STREQ(g_conf_read_string(conf, "net", "port", nullptr), "a new one");
    conf->dirty = 0;
    g_conf_close(conf);
  });
}

// Opens a conf with a callback on one key and runs the change with each of its allocations
// failing, alone and with all later ones, until none does. Then check(conf, before,
// failed).
template <typename Change, typename Check>
void for_each_failure(const ConfFile& file, const char* section, const char* key,
                      Change change, Check check) {
  const std::string text = file.text();
  for (const bool and_all_later : {false, true}) {
    for (int nth = 1;; ++nth) {
      ASSERT_LT(nth, 100);
      SCOPED_TRACE(testing::Message() << "allocation " << nth << " fails"
                                      << (and_all_later ? ", and all later ones" : ""));
      const ConfFile copy(text);
      const Conf conf = copy.open();
      ASSERT_EQ(g_conf_register_callback(conf.get(), section, key, count_run, nullptr), 0);
      const Sections before = content(conf.get());
      runs = 0;
      bool failed = false;
      {
        const Quiet quiet;
        AllocationFaults faults(nth, and_all_later);
        change(conf.get());
        faults.disarm();
        failed = faults.failures() != 0;
      }
      check(conf.get(), before, failed);
      if (!failed || testing::Test::HasFailure()) break;
    }
  }
}

TEST(ConfExhaustedMemory, AWriteHappensWholeOrNotAtAll) {
  for (const char* const section : {"s", "new"}) {
    for (const char* const key : {"key0", "newkey"}) {
      for (const int keys :
           {3, 8, 12, 24}) {  // the next key needs an index, or a larger one
        SCOPED_TRACE(testing::Message() << section << " " << key << " " << keys);
        const ConfFile file(text_of(keys));
        const std::string value(200, 'x');
        int unchanged = 0;
        for_each_failure(
            file, section, key,
            [&](GConf* conf) { g_conf_write_string(conf, section, key, value.c_str()); },
            [&](GConf* conf, const Sections& before, bool failed) {
              const bool changed = g_conf_read_string(conf, section, key, "") == value;
              EXPECT_TRUE(changed || failed);
              EXPECT_EQ(changed, content(conf) != before);
              EXPECT_EQ(conf->dirty, changed ? 1 : 0);
              EXPECT_EQ(runs, changed ? 1 : 0);
              unchanged += changed ? 0 : 1;
              // Usable as before.
              g_conf_write_string(conf, section, key, "y");
              EXPECT_STREQ(g_conf_read_string(conf, section, key, ""), "y");
              EXPECT_EQ(g_conf_read_string(conf, "s", "none", nullptr), nullptr);
            });
        EXPECT_GE(unchanged, 1);
      }
    }
  }
}

TEST(ConfExhaustedMemory, AWriteThatFailedNamesItsKeyAfterTheLockIsFree) {
  const ConfFile file("[s]\nk=v\n");
  const Conf conf = file.open();
  LogCapture log;
  {
    AllocationFaults faults(1);
    g_conf_write_string(conf.get(), "s", "k", "w");
    faults.disarm();
    EXPECT_EQ(faults.failures(), 1);
  }
  EXPECT_EQ(log.take(), Lines{warning_line("g_conf", "can't store 's'->'k'.")});
  EXPECT_STREQ(g_conf_read_string(conf.get(), "s", "k", ""), "v");
}

TEST(ConfExhaustedMemory, TypedWritesNeedNoMoreThanTheTextStored) {
  const ConfFile file("[s]\nk=v\n");
  const Conf conf = file.open();
  AllocationFaults faults(2, true);
  g_conf_write_double(conf.get(), "s", "k", 1.5);
  faults.disarm();
  EXPECT_EQ(g_conf_read_double(conf.get(), "s", "k", 0), 1.5);
}

TEST(ConfExhaustedMemory, AnEqualWriteAReadAndARemovalNeedNone) {
  const ConfFile file(text_of(40));
  const Conf conf = file.open();
  AllocationFaults faults(1, true);
  g_conf_write_string(conf.get(), "t", "k", "v");
  g_conf_read_string(conf.get(), "s", "key7", nullptr);
  g_conf_remove_key(conf.get(), "s", "key7");
  g_conf_remove_section(conf.get(), "t");
  faults.disarm();
  EXPECT_EQ(faults.calls(), 0);
  EXPECT_EQ(g_find_section(conf.get(), "t"), nullptr);
}

TEST(ConfExhaustedMemory, AWriteWithoutCallbacksMakesNoKeyForThem) {
  const ConfFile file("[s]\nk=v\n");
  const Conf conf = file.open();
  const std::string key(1000, 'k');
  g_conf_write_int(conf.get(), "s", key.c_str(), 1);
  AllocationFaults faults(0);
  g_conf_write_int(conf.get(), "s", key.c_str(), 2);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 1);
}

TEST(ConfExhaustedMemory, AWriteWhoseCallbacksCannotBeFoundStillCounts) {
  const ConfFile file("[s]\nk=v\n");
  const Conf conf = file.open();
  const std::string key(1000, 'k');
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", key.c_str(), count_run, nullptr), 0);
  runs = 0;
  {
    const Quiet quiet;
    AllocationFaults faults(3);  // after entry and node
    g_conf_write_int(conf.get(), "s", key.c_str(), 1);
    faults.disarm();
    EXPECT_EQ(faults.failures(), 1);
  }
  EXPECT_EQ(g_conf_read_int(conf.get(), "s", key.c_str(), 0), 1);
  EXPECT_EQ(conf->dirty, 1);
  EXPECT_EQ(runs, 0);
}

TEST(ConfExhaustedMemory, ARegistrationHappensWholeOrNotAtAllAndNamesItsKey) {
  const std::string long_key(1000, 'k');
  for (const std::string& key : {std::string("k"), long_key}) {
    for (int nth = 1; nth < 20; ++nth) {
      const ConfFile file("[s]\n");
      const Conf conf = file.open();
      LogCapture log;
      runs = 0;
      AllocationFaults faults(nth);
      const int result =
          g_conf_register_callback(conf.get(), "s", key.c_str(), count_run, nullptr);
      faults.disarm();
      EXPECT_EQ(result, faults.failures() == 0 ? 0 : -1);
      EXPECT_EQ(g_hash_count(conf->callbacks), result == 0 ? 1u : 0u);
      if (result != 0) {
        const Lines lines = log.take();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(
            lines.back(),
            warning_line("g_conf", "can't register callback for 's'->'" + key + "'."));
      }
      g_conf_write_int(conf.get(), "s", key.c_str(), 1);
      EXPECT_EQ(runs, result == 0 ? 1 : 0);
    }
  }
}

TEST(ConfExhaustedMemory, ASecondRegistrationThatFailsLeavesTheFirst) {
  const ConfFile file("[s]\n");
  const Conf conf = file.open();
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "k", count_run, nullptr), 0);
  {
    const Quiet quiet;
    AllocationFaults faults(1);
    EXPECT_EQ(g_conf_register_callback(conf.get(), "s", "k", count_run, nullptr), -1);
    faults.disarm();
    EXPECT_EQ(faults.failures(), 1);
  }
  runs = 0;
  g_conf_write_int(conf.get(), "s", "k", 1);
  EXPECT_EQ(runs, 1);
}

TEST(ConfExhaustedMemory, TheWholeFileIsWrittenWithoutABuffer) {
  const std::string before = "[S]\nkey=v\n=\n\n[T]\nk=v\n\n";
  const std::string value(10000, 'v');  // the buffer has to grow for it
  for (int nth = 1;; ++nth) {
    const ConfFile file(before);
    const Conf conf = file.open();
    g_conf_write_string(conf.get(), "s", "key", value.c_str());
    bool failed = false;
    {
      const Quiet quiet;
      AllocationFaults faults(nth);
      g_conf_sync(conf.get());
      faults.disarm();
      failed = faults.failures() != 0;
    }
    EXPECT_EQ(file.text(), "[S]\nkey=" + value + "\n=\n\n[T]\nk=v\n\n") << nth;
    EXPECT_EQ(conf->dirty, 0);
    if (!failed) break;
  }
}

TEST(ConfExhaustedMemory, AConfIsWrittenAndClosedWithoutAnyMemory) {
  const ConfFile file("[s]\nk=v\n");
  GConf* const conf = g_conf_open(file.path().c_str());
  g_conf_write_int(conf, "s", "k", 1);
  const LogCapture log(G_LOG_SILENT);  // collecting lines would allocate
  {
    AllocationFaults faults(1, true);
    EXPECT_EQ(g_conf_close(conf), 0);
    faults.disarm();
    EXPECT_GE(faults.failures(), 1);
  }
  EXPECT_EQ(file.text(), "[s]\nk=1\n\n");
}

}  // namespace
