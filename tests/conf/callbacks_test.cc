// Change callbacks.
//
// SPDX-License-Identifier: MIT

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>

#include "conf/conf_support.h"
#include "support/allocation_faults.h"

using namespace test;

namespace {

static_assert(offsetof(GConfChange, section) == 0 &&
              offsetof(GConfChange, key) == sizeof(void*) &&
              offsetof(GConfChange, value) == 2 * sizeof(void*));

std::vector<std::string> calls;  // "data: section.key=value"
int callback_result = 0;
std::function<void(const GConfChange*)> on_call;

int record(const GConfChange* change, void* data) {
  calls.push_back(std::string(data != nullptr ? static_cast<const char*>(data) : "-") +
                  ": " + change->section + "." + change->key + "=" + change->value);
  if (on_call != nullptr) on_call(change);
  return callback_result;
}

void* text(const char* literal) {
  return const_cast<char*>(literal);
}

class ConfCallback : public testing::Test {
 protected:
  ConfCallback() {
    calls.clear();
    callback_result = 0;
  }
  ~ConfCallback() override { on_call = nullptr; }

  void add(const char* section, const char* key, const char* data = nullptr) {
    EXPECT_EQ(g_conf_register_callback(conf_.get(), section, key, record, text(data)), 0);
  }
  void write(const char* section, const char* key, const char* value) {
    g_conf_write_string(conf_.get(), section, key, value);
  }
  Lines take() { return std::exchange(calls, {}); }

  ConfFile file_{"[s]\nk=0\n[net]\nip=1\n"};
  Conf conf_ = file_.open();
};

TEST_F(ConfCallback, RunsOnceForAChangeAndNotForAnEqualValue) {
  add("s", "k");
  g_conf_write_int(conf_.get(), "s", "k", 1);
  EXPECT_EQ(take(), Lines{"-: s.k=1"});
  g_conf_write_int(conf_.get(), "s", "k", 1);
  EXPECT_EQ(take(), Lines{});
}

TEST_F(ConfCallback, RunsForEveryKindOfWriteWithItsText) {
  add("s", "k");
  g_conf_write_boolean(conf_.get(), "s", "k", 1);
  g_conf_write_float(conf_.get(), "s", "k", 0.5F);
  g_conf_write_double(conf_.get(), "s", "k", 1e10);
  EXPECT_EQ(take(), (Lines{"-: s.k=TRUE", "-: s.k=0.5", "-: s.k=1e+10"}));
}

TEST_F(ConfCallback, RunsForAKeyAndASectionThatAreNew) {
  add("new", "key");
  write("new", "key", "v");
  EXPECT_EQ(take(), Lines{"-: new.key=v"});
}

TEST_F(ConfCallback, ANameInAnotherCaseChangesTheEntryAndRunsNothing) {
  add("s", "k");
  write("S", "k", "1");
  write("s", "K", "2");
  EXPECT_EQ(take(), Lines{});
  EXPECT_EQ(content(conf_.get())[0], (Sections::value_type{"s", {{"k", "2"}}}));
}

TEST_F(ConfCallback, GetsTheVeryStringsOfTheWriteUntrimmed) {
  add("s", " k ", "a");
  const char* const section = "s";
  const char* const key = " k ";
  const char* const value = "  5 ";
  const GConfChange* seen = nullptr;
  on_call = [&](const GConfChange* change) {
    seen = change;
    EXPECT_EQ(change->section, section);
    EXPECT_EQ(change->key, key);
    EXPECT_EQ(change->value, value);
  };
  write(section, key, value);
  EXPECT_NE(seen, nullptr);
  EXPECT_EQ(take(), Lines{"a: s. k =  5 "});
}

TEST_F(ConfCallback, RunsWhenOnlyBlanksDifferAlthoughTheStoredTextStays) {
  write("s", "k", "5");
  add("s", "k");
  write("s", "k", " 5");
  EXPECT_EQ(take(), Lines{"-: s.k= 5"});
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "s", "k", ""), "5");
}

TEST_F(ConfCallback, RunsAfterTheValueWasStoredAndTheConfIsDirtyWithoutItsLock) {
  add("s", "k");
  on_call = [&](const GConfChange*) {
    EXPECT_EQ(conf_->dirty, 1);
    EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "k", 0), 7);
    // Another thread can take the lock meanwhile.
    std::thread([&] { EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "k", 0), 7); }).join();
  };
  g_conf_write_int(conf_.get(), "s", "k", 7);
  EXPECT_EQ(take().size(), 1u);
}

TEST_F(ConfCallback, SeveralRunInTheOrderOfRegistrationAndTwiceWhenRegisteredTwice) {
  add("s", "k", "a");
  add("s", "k", "b");
  add("s", "k", "a");
  write("s", "k", "1");
  EXPECT_EQ(take(), (Lines{"a: s.k=1", "b: s.k=1", "a: s.k=1"}));
}

TEST_F(ConfCallback, ANonZeroResultKeepsTheNextFromRunningAndTheWriteCounts) {
  add("s", "k", "a");
  add("s", "k", "b");
  add("s", "l", "c");
  callback_result = 1;
  write("s", "k", "1");
  EXPECT_EQ(take(), Lines{"a: s.k=1"});
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "s", "k", ""), "1");
  write("s", "l", "1");
  EXPECT_EQ(take(), Lines{"c: s.l=1"});
}

TEST_F(ConfCallback, NamesAreJoinedByADotSoTwoPairsMayMeet) {
  add("a.b", "c");
  write("a", "b.c", "1");
  EXPECT_EQ(take(), Lines{"-: a.b.c=1"});
}

TEST_F(ConfCallback, LongNamesAreKeysLikeShortOnes) {
  for (const size_t length : {100, 125, 126, 127, 128, 1000}) {
    const std::string key(length, 'k');
    const std::string shorter(length - 1, 'k');
    add("s", key.c_str());
    write("s", shorter.c_str(), "w");
    EXPECT_EQ(take(), Lines{});
    write("s", key.c_str(), "v");
    EXPECT_EQ(take(), Lines{"-: s." + key + "=v"});
    g_conf_remove_section(conf_.get(), "s");
    g_conf_close(conf_.release());
    conf_ = file_.open();
  }
}

TEST_F(ConfCallback, RemovingLoadingSyncingAndClosingRunNone) {
  add("s", "k");
  write("net", "ip", "2");
  g_conf_sync(conf_.get());
  g_conf_remove_key(conf_.get(), "s", "k");
  g_conf_remove_section(conf_.get(), "s");
  conf_.reset();
  EXPECT_EQ(take(), Lines{});
}

TEST_F(ConfCallback, MayWriteTheSameKeyAndRunsAgain) {
  add("s", "k");
  on_call = [&](const GConfChange* change) {
    if (std::string(change->value) == "1") write("s", "k", "2");
    if (std::string(change->value) == "2") write("s", "k", "2");  // equal: ends here
  };
  write("s", "k", "1");
  EXPECT_EQ(take(), (Lines{"-: s.k=1", "-: s.k=2"}));
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "s", "k", ""), "2");
}

TEST_F(ConfCallback, MayRegisterAnotherAndRemoveItsKey) {
  add("s", "k", "a");
  bool first = true;
  on_call = [&](const GConfChange*) {
    if (!std::exchange(first, false)) return;
    for (int key = 0; key < 50; ++key) add("x", std::to_string(key).c_str(), "x");
    add("s", "k", "b");
    g_conf_remove_section(conf_.get(), "s");
  };
  write("s", "k", "1");
  EXPECT_EQ(take()[0], "a: s.k=1");
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "s", "k", "gone"), "gone");
  write("s", "k", "2");
  EXPECT_EQ(take(), (Lines{"a: s.k=2", "b: s.k=2"}));
}

TEST_F(ConfCallback, TheValueMayBeAPieceOfTheStoredText) {
  write("s", "k", "0123456789");
  add("s", "k");
  write("s", "k", g_conf_read_string(conf_.get(), "s", "k", "") + 4);
  EXPECT_EQ(take(), Lines{"-: s.k=456789"});
}

TEST_F(ConfCallback, TheReplacedTextIsFreedAfterTheCallbacks) {
  const auto nothing = [](const GConfChange*, void*) { return 0; };
  EXPECT_EQ(g_conf_register_callback(conf_.get(), "s", "k", nothing, nullptr), 0);
  AllocationFaults blocks(0);
  for (int value = 1; value < 10; ++value) g_conf_write_int(conf_.get(), "s", "k", value);
  blocks.disarm();
  EXPECT_EQ(blocks.outstanding(), 1);  // the last one
}

TEST_F(ConfCallback, BelongsToItsConfAlone) {
  add("s", "k");
  const ConfFile other_file("[s]\nk=0\n");
  const Conf other = other_file.open();
  g_conf_write_int(other.get(), "s", "k", 1);
  EXPECT_EQ(take(), Lines{});
}

TEST_F(ConfCallback, EachPairOfNamesIsOneEntryOfTheTable) {
  add("s", "k");
  add("s", "k");
  add("S", "k");
  EXPECT_EQ(g_hash_count(conf_->callbacks), 2u);
  EXPECT_NE(g_hash_find(conf_->callbacks, "s.k"), nullptr);
  EXPECT_EQ(g_hash_find(conf_->callbacks, "s.K"), nullptr);
}

TEST_F(ConfCallback, ChecksInOrderEachReportedOnce) {
  LogCapture log;
  EXPECT_EQ(g_conf_register_callback(nullptr, nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "conf != NULL")});
  EXPECT_EQ(g_conf_register_callback(conf_.get(), nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "section != NULL")});
  EXPECT_EQ(g_conf_register_callback(conf_.get(), "s", nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "key != NULL")});
  EXPECT_EQ(g_conf_register_callback(conf_.get(), "s", "k", nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "func != NULL")});
  EXPECT_EQ(g_hash_count(conf_->callbacks), 0u);
}

TEST_F(ConfCallback, MayEndItsThreadAndLeavesNoLockHeldAndLeaksNoBlock) {
  AllocationFaults blocks(0);
  write("s", "k", "previous");
  blocks.disarm();
  EXPECT_EQ(g_conf_register_callback(
                conf_.get(), "s", "k",
                [](const GConfChange* change, void* data) -> int {
                  EXPECT_STREQ(change->value, "long enough 1");
                  pthread_exit(data);
                },
                conf_.get()),
            0);
  write("s", "other", "1");
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void* conf) -> void* {
                  g_conf_write_string(static_cast<GConf*>(conf), "s", "k", "long enough 1");
                  return nullptr;
                },
                conf_.get()),
            0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, conf_.get());  // it was ended by the callback
  EXPECT_STREQ(g_conf_read_string(conf_.get(), "s", "k", ""), "long enough 1");
  EXPECT_EQ(blocks.outstanding(), 0);
}

}  // namespace
