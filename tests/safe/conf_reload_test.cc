// What a reload does to a model, and which callbacks it runs.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <thread>

#include "safe/conf_support.h"
#include "support/allocation_faults.h"

using namespace test;

namespace {

// Reloads the text that a file was rewritten with.
int reload(const Conf& conf, const ConfFile& file, std::string_view text) {
  file.rewrite(text);
  LogCapture log;
  const int result = g_conf_reload(conf.get());
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(conf->dirty, 0);
  return result;
}

TEST(ConfReload, ANullConfReportsTheCheckAndReturnsMinusOne) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_conf_reload(nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "conf != NULL")});
}

TEST(ConfReload, CountsWhatIsAddedChangedAndRemoved) {
  const ConfFile file("[s]\na=1\nb=2\nc=3\n[t]\nx=1\ny=2\n[e]\n");
  const Conf conf = file.open();
  EXPECT_EQ(reload(conf, file, "[s]\na=1\nb=9\nd=4\n[u]\nz=1\n[f]\n"), 6);
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"a", "1"}, {"b", "9"}, {"d", "4"}}},
                                           {"u", {{"z", "1"}}},
                                           {"f", {}}}));
  EXPECT_EQ(g_conf_reload(conf.get()), 0);
}

TEST(ConfReload, CommentsSpacesOrderAndSpellingAreNoChange) {
  const ConfFile file("[S]\nKey=1\nl=2\n[t]\nx=1\n");
  const Conf conf = file.open();
  EXPECT_EQ(reload(conf, file, "# c\n[T]\n X = 1 \r\n[s]\nL=2\n\nKEY=0\n[S]\nkey=1\n"), 0);
  EXPECT_EQ(content(conf.get()),
            (Sections{{"S", {{"Key", "1"}, {"l", "2"}}}, {"t", {{"x", "1"}}}}));
}

TEST(ConfReload, WhatStaysKeepsItsPlaceAndWhatIsNewIsAppendedInTheOrderOfTheFile) {
  const ConfFile file("[s]\na=1\nb=2\nc=3\n[t]\nx=1\n");
  const Conf conf = file.open();
  EXPECT_EQ(
      reload(conf, file, "[v]\nm=1\n[t]\nw=2\nx=1\n[u]\nn=1\n[s]\nz=4\nc=3\ny=5\na=9\n"),
      7);
  EXPECT_EQ(content(conf.get()),
            (Sections{{"s", {{"a", "9"}, {"c", "3"}, {"z", "4"}, {"y", "5"}}},
                      {"t", {{"x", "1"}, {"w", "2"}}},
                      {"v", {{"m", "1"}}},
                      {"u", {{"n", "1"}}}}));
}

TEST(ConfReload, PointersToUnchangedEntriesAndValuesStayValid) {
  std::string text = "[s]\n";
  for (int key = 0; key < 40; ++key) text += "k" + std::to_string(key) + "=v\n";
  const ConfFile file(text + "[t]\nx=1\n");
  const Conf conf = file.open();
  GConfSection* const section = g_find_section(conf.get(), "s");
  GConfEntry* const unchanged = g_find_line(section, "k7");
  const char* const value = unchanged->value;
  GConfEntry* const changed = g_find_line(section, "k8");
  set(conf.get(), "s", "k9", "written");
  const char* const written = g_conf_read_string(conf.get(), "s", "k9", nullptr);
  ASSERT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(reload(conf, file, "[t]\n[s]\nn=1\nk8=w\nk7=v\nk9=written\n"), 40);
  EXPECT_EQ(g_find_section(conf.get(), "s"), section);
  EXPECT_EQ(g_find_line(section, "k7"), unchanged);
  EXPECT_EQ(unchanged->value, value);
  EXPECT_STREQ(value, "v");
  EXPECT_EQ(g_find_line(section, "k8"), changed);
  EXPECT_STREQ(changed->value, "w");
  EXPECT_EQ(g_conf_read_string(conf.get(), "s", "k9", nullptr), written);
}

TEST(ConfReload, AModelThatWasReloadedCanBeSavedAndWrittenTo) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  EXPECT_EQ(reload(conf, file, "#c\n[s]\nb=1\n[t]\n"), 2);
  set(conf.get(), "s", "b", "2");
  set(conf.get(), "t", "x", "3");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "#c\n[s]\nb=2\n[t]\nx=3\n");
}

TEST(ConfReload, ANulByteEndsTheText) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  EXPECT_EQ(reload(conf, file, std::string_view("[s]\na=2\n\0b=1\n[t]\nx=1\n", 21)), 1);
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"a", "2"}}}}));
  // The bytes after it are a part of the file that was taken in.
  set(conf.get(), "s", "a", "3");
  expect_refused(conf.get(), EBADMSG);
  conf->dirty = 0;
}

TEST(ConfReload, AConfOpenedWithoutAFileTakesInTheOneThatCame) {
  const ConfFile file;
  const Conf conf = file.open();
  EXPECT_EQ(g_conf_reload(conf.get()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(reload(conf, file, "[s]\na=1\n"), 1);
  set(conf.get(), "s", "a", "2");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "[s]\na=2\n");
}

TEST(ConfReload, ManyKeysAreComparedAddedAndRemovedInAMoment) {
  std::string before = "[s]\n";
  std::string after = "[s]\n";
  for (int key = 0; key < 20000; ++key) {
    before += "a" + std::to_string(key) + "=1\n";
    after += (key % 2 == 0 ? "a" : "b") + std::to_string(key) + "=1\n";
  }
  const ConfFile file(before);
  const Conf conf = file.open();
  EXPECT_EQ(reload(conf, file, after), 20000);
  EXPECT_EQ(readings(conf.get()), readings(file.open().get()));
}

// Appends a record of the program's own.
void append_own(GConfSection* section, const char* key) {
  auto* const entry = static_cast<GConfEntry*>(malloc(sizeof(GConfEntry)));
  *entry = {strdup(key), strdup("1")};
  section->entries = g_list_append(section->entries, entry);
}

TEST(ConfReload, AProgramsOwnRecordsAreTakenForWhatTheyAre) {
  const ConfFile file("[s]\na=1\nown=2\n");
  const Conf conf = file.open();
  GConfSection* const section = g_find_section(conf.get(), "s");
  for (const char* const key : {"mine", "other"}) append_own(section, key);
  EXPECT_EQ(reload(conf, file, "[s]\nmine=5\nnew=3\na=1\n"), 4);
  EXPECT_EQ(content(conf.get()),
            (Sections{{"s", {{"a", "1"}, {"mine", "5"}, {"new", "3"}}}}));
}

// Failures.

TEST(ConfReloadFailure, WithoutMemoryARemovalLeavesTheModelAsItWas) {
  const ConfFile file;
  for_each_failed_allocation([&](AllocationFaults& faults) {
    faults.pause();
    file.rewrite("[s]\na=1\nb=2\n");
    const Conf conf = file.open();
    append_own(g_find_section(conf.get(), "s"), "a");
    file.rewrite("[s]\na=1\n");
    faults.resume();
    const int result = g_conf_reload(conf.get());
    const int error = errno;
    faults.pause();
    if (result == -1) {
      EXPECT_EQ(error, ENOMEM);
      EXPECT_EQ(content(conf.get()),
                (Sections{{"s", {{"a", "1"}, {"b", "2"}, {"a", "1"}}}}));
    } else {
      EXPECT_EQ(result, 1);
      EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"a", "1"}}}}));
    }
  });
}

TEST(ConfReloadFailure, UnsavedChangesAreNotOverwritten) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  file.rewrite("[s]\na=3\n");
  errno = 0;
  EXPECT_EQ(g_conf_reload(conf.get()), -1);
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"a", "2"}}}}));
  EXPECT_EQ(conf->dirty, 1);
  // Whatever happened to the file.
  file.remove();
  EXPECT_EQ(g_conf_reload(conf.get()), -1);
  EXPECT_EQ(errno, EBUSY);
  conf->dirty = 0;
}

TEST(ConfReloadFailure, WithoutAFileTheModelStaysAsItWas) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  file.remove();
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_conf_reload(conf.get()), -1);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(mkdir(file.path().c_str(), 0755), 0);
  errno = 0;
  EXPECT_EQ(g_conf_reload(conf.get()), -1);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(rmdir(file.path().c_str()), 0);
  ASSERT_EQ(mkfifo(file.path().c_str(), 0644), 0);  // nobody writes into it
  EXPECT_EQ(g_conf_reload(conf.get()), -1);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"a", "1"}}}}));
  // What was loaded still counts.
  file.rewrite("[s]\na=1\n");
  set(conf.get(), "s", "a", "2");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
}

TEST(ConfReloadFailure, AFileThatIsTooLargeIsLeft) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  if (truncate64(file.path().c_str(), int64_t{1} << 31) != 0) {
    GTEST_SKIP() << "no files of 2 GiB here: " << std::strerror(errno);
  }
  EXPECT_EQ(g_conf_reload(conf.get()), -1);
  EXPECT_EQ(errno, EFBIG);
  set(conf.get(), "s", "a", "2");
  EXPECT_EQ(g_conf_save(conf.get(), 0), -1);
  EXPECT_EQ(errno, ESTALE);
  EXPECT_EQ(g_conf_save(conf.get(), 1), -1);
  EXPECT_EQ(errno, EFBIG);
  conf->dirty = 0;
}

// Runs the steps while another process has the file locked for writing.
template <typename Steps>
void while_locked(const ConfFile& file, Steps steps) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    GFile* const locked = g_file_open(file.path().c_str(), 1);
    const char locked_as_expected = g_file_lock_write(locked) == 0 ? 'y' : 'n';
    if (write(ready[1], &locked_as_expected, 1) == 1) pause();
    _exit(0);
  }
  char locked_as_expected = 'n';
  EXPECT_EQ(read(ready[0], &locked_as_expected, 1), 1);
  EXPECT_EQ(locked_as_expected, 'y');
  steps();
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
}

TEST(ConfReloadFailure, AFileThatAnotherProcessWritesIsNotReadHalf) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  while_locked(file, [&] {
    errno = 0;
    EXPECT_EQ(g_conf_reload(conf.get()), -1);
    EXPECT_EQ(errno, EAGAIN);
    set(conf.get(), "s", "a", "2");
    for (const int force : {0, 1}) expect_refused(conf.get(), EAGAIN, force);
  });
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
}

// Callbacks.

struct Reported {
  GConf* conf;
  Lines calls;
};

int report(const GConfChange* change, void* data) {
  auto* const reported = static_cast<Reported*>(data);
  const char* const now =
      g_conf_read_string(reported->conf, change->section, change->key, "");
  EXPECT_STREQ(now, change->value);
  reported->calls.push_back(std::string(change->section) + "." + change->key + "=" +
                            change->value);
  return 0;
}

void report_to(const Conf& conf, Reported& reported, const char* section, const char* key) {
  ASSERT_EQ(g_conf_register_callback(conf.get(), section, key, report, &reported), 0);
}

TEST(ConfReloadCallbacks, RunInTheOrderOfTheFileThoseOfRemovedKeysLast) {
  const ConfFile file("[s]\na=1\nb=2\nc=3\nd=4\n[t]\nx=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  for (const char* const key : {"a", "b", "c", "d", "n"})
    report_to(conf, reported, "s", key);
  report_to(conf, reported, "t", "x");
  report_to(conf, reported, "u", "y");
  EXPECT_EQ(reload(conf, file, "[s]\nd=40\n[u]\ny=1\n[s]\nn=5\nb=2\na=10\n"), 6);
  EXPECT_EQ(reported.calls, (Lines{"s.d=40", "u.y=1", "s.n=5", "s.a=10", "s.c=", "t.x="}));
}

TEST(ConfReloadCallbacks, GetTheSpellingOfTheModel) {
  const ConfFile file("[Net]\nPort=1\nOld=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  report_to(conf, reported, "Net", "Port");
  report_to(conf, reported, "Net", "NEW");
  report_to(conf, reported, "Net", "Old");
  report_to(conf, reported, "NET", "PORT");
  EXPECT_EQ(reload(conf, file, "[NET]\nPORT=2\nNEW=3\n"), 3);
  EXPECT_EQ(reported.calls, (Lines{"Net.Port=2", "Net.NEW=3", "Net.Old="}));
}

TEST(ConfReloadCallbacks, AProgramsSecondRecordOfANameIsDroppedWithoutAReport) {
  const ConfFile file("[s]\nk=1\nm=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  for (const char* const key : {"k", "m"}) report_to(conf, reported, "s", key);
  append_own(g_find_section(conf.get(), "s"), "k");
  EXPECT_EQ(reload(conf, file, "[s]\nk=2\n"), 2);
  EXPECT_EQ(reported.calls, (Lines{"s.k=2", "s.m="}));
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"k", "2"}}}}));
}

TEST(ConfReloadCallbacks, AProgramsSecondSectionOfANameIsDroppedWithoutAReport) {
  const ConfFile file("[s]\nk=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  report_to(conf, reported, "s", "k");
  auto* const own = static_cast<GConfSection*>(malloc(sizeof(GConfSection)));
  *own = {strdup("s"), nullptr};
  append_own(own, "k");
  conf->sections = g_list_append(conf->sections, own);
  EXPECT_EQ(reload(conf, file, "[s]\nk=2\n"), 1);
  EXPECT_EQ(reported.calls, Lines{"s.k=2"});
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"k", "2"}}}}));
}

TEST(ConfReloadCallbacks, AChangeToAnEmptyValueIsReported) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  report_to(conf, reported, "s", "a");
  EXPECT_EQ(reload(conf, file, "[s]\na=\n"), 1);
  EXPECT_EQ(reported.calls, Lines{"s.a="});
}

struct Rest {
  GConf* conf;
  Sections seen;
  pthread_t thread;
};

TEST(ConfReloadCallbacks, SeeTheWholeModelOnTheCallingThread) {
  const ConfFile file("[s]\na=1\nb=1\nc=1\n");
  const Conf conf = file.open();
  Rest rest{conf.get(), {}, {}};
  const auto look = [](const GConfChange*, void* data) {
    auto* const seen = static_cast<Rest*>(data);
    seen->seen = content(seen->conf);
    seen->thread = pthread_self();
    return 0;
  };
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "a", look, &rest), 0);
  EXPECT_EQ(reload(conf, file, "[s]\na=2\nb=2\n"), 3);
  EXPECT_EQ(rest.seen, (Sections{{"s", {{"a", "2"}, {"b", "2"}}}}));
  EXPECT_NE(pthread_equal(rest.thread, pthread_self()), 0);
}

TEST(ConfReloadCallbacks, MayChangeSaveAndReloadTheConf) {
  const ConfFile file("[s]\na=1\nb=1\n[t]\nc=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  const auto change = [](const GConfChange*, void* data) {
    GConf* const own = static_cast<Reported*>(data)->conf;
    g_conf_remove_section(own, "t");
    set(own, "new", "key", "1");
    EXPECT_EQ(g_conf_reload(own), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(g_conf_save(own, 0), 0);
    EXPECT_EQ(g_conf_reload(own), 0);
    return 0;
  };
  const auto note = [](const GConfChange* reported_change, void* data) {
    static_cast<Reported*>(data)->calls.push_back(reported_change->value);
    return 0;
  };
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "a", change, &reported), 0);
  // Its entry is gone by then; the callback gets what the file held.
  ASSERT_EQ(g_conf_register_callback(conf.get(), "t", "c", note, &reported), 0);
  EXPECT_EQ(reload(conf, file, "[s]\na=2\nb=1\n[t]\nc=2\n"), 2);
  EXPECT_EQ(reported.calls, Lines{"2"});
  EXPECT_EQ(file.text(), "[s]\na=2\nb=1\n\n[new]\nkey=1\n");
}

TEST(ConfReloadCallbacks, AResultOtherThanZeroStopsTheOthersOfThatKeyOnly) {
  const ConfFile file("[s]\na=1\nb=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  const auto stop = [](const GConfChange*, void*) { return 1; };
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "a", stop, nullptr), 0);
  report_to(conf, reported, "s", "a");
  report_to(conf, reported, "s", "b");
  EXPECT_EQ(reload(conf, file, "[s]\na=2\nb=2\n"), 2);
  EXPECT_EQ(reported.calls, Lines{"s.b=2"});
}

TEST(ConfReloadCallbacks, MayEndTheirThread) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  const auto leave = [](const GConfChange*, void*) -> int { pthread_exit(nullptr); };
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "a", leave, nullptr), 0);
  file.rewrite("[s]\na=2\n");
  pthread_t thread;
  const auto run = [](void* own) -> void* {
    g_conf_reload(static_cast<GConf*>(own));
    return own;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, run, conf.get()), 0);
  void* result = conf.get();
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, nullptr) << "the callback did not end the thread";
  // Nothing is held that the next one needs.
  EXPECT_EQ(g_conf_reload(conf.get()), 0);
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"a", "2"}}}}));
}

[[gnu::noinline]] void expect_two_changes(GConf* conf) {
  EXPECT_EQ(g_conf_reload(conf), 2);
}

TEST(ConfReloadCallbacks, ACancelledThreadRunsAllOfThem) {
  const ConfFile file("[s]\na=1\nb=1\n");
  const Conf conf = file.open();
  Reported reported{conf.get(), {}};
  const auto meet_cancellation = [](const GConfChange*, void*) {
    pthread_cancel(pthread_self());
    pthread_testcancel();
    return 0;
  };
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "a", meet_cancellation, nullptr), 0);
  report_to(conf, reported, "s", "b");
  file.rewrite("[s]\na=2\nb=2\n");
  pthread_t thread;
  // No locals here: their destructors would not run.
  const auto run = [](void* own) -> void* {
    expect_two_changes(static_cast<GConf*>(own));
    pthread_testcancel();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, run, conf.get()), 0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_EQ(reported.calls, Lines{"s.b=2"});
}

}  // namespace
