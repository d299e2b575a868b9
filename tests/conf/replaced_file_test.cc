// Another program at the file between two system calls of the library. This program defines
// the system's functions itself, so that the library's calls come through here. Compiled
// for 64-bit offsets and times, which gives the functions the names that the library
// imports.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <iterator>

#include "conf/conf_support.h"
#include "support/allocation_faults.h"

using namespace test;

namespace {

// Counts the points between the system calls, and acts at one of them.
struct Intruder {
  int at = 0;     // 0: never
  int point = 0;  // the last one that was passed
  std::function<void()> act;
  bool is_acting = false;
};
Intruder* intruder = nullptr;

void pass_point() {
  if (intruder == nullptr || intruder->is_acting) return;
  if (++intruder->point != intruder->at) return;
  intruder->is_acting = true;
  intruder->act();
  intruder->is_acting = false;
}

#ifdef SYS_fcntl64
constexpr long kFcntl = SYS_fcntl64;
#else
constexpr long kFcntl = SYS_fcntl;
#endif

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
  va_end(args);
  pass_point();
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode));
}

int close(int descriptor) {
  pass_point();
  return static_cast<int>(syscall(SYS_close, descriptor));
}

int fcntl(int descriptor, int command, ...) {
  va_list args;
  va_start(args, command);
  void* const argument = va_arg(args, void*);
  va_end(args);
  pass_point();
  return static_cast<int>(syscall(kFcntl, descriptor, command, argument));
}

int stat(const char* path, struct stat* status) noexcept {
  pass_point();
  return fstatat(AT_FDCWD, path, status, 0);
}

int fstat(int descriptor, struct stat* status) noexcept {
  pass_point();
  return fstatat(descriptor, "", status, AT_EMPTY_PATH);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
  pass_point();
  return static_cast<ssize_t>(syscall(SYS_read, descriptor, buffer, size));
}

ssize_t write(int descriptor, const void* buffer, size_t size) {
  pass_point();
  const long written = syscall(SYS_write, descriptor, buffer, size);
  pass_point();  // before the file is cut off
  return static_cast<ssize_t>(written);
}

}  // extern "C"

namespace {

constexpr char kOld[] = "[a]\nkey=old value\nlast=1\n";

// What another program may do to the file.
struct Act {
  const char* name;
  void (*act)(const ConfFile& file);
  const char* text;       // afterwards; null for no file
  bool replaces = false;  // and the file that was there is open somewhere still
};

void replace(const ConfFile& file, const char* text) {
  const std::string path = file.directory().write("other.conf", text);
  ASSERT_EQ(std::rename(path.c_str(), file.path().c_str()), 0);
}

constexpr char kShorter[] = "[b]\nk=w\n";
constexpr char kLonger[] = "[b]\nkey=another\nlast=2\nand=more\n";
constexpr char kSameSize[] = "[A]\nkey=new value\nlast=2\n";
static_assert(sizeof kSameSize == sizeof kOld);

constexpr Act kActs[] = {
    {"replaced by a shorter one", [](const ConfFile& file) { replace(file, kShorter); },
     kShorter, true},
    {"replaced by a longer one", [](const ConfFile& file) { replace(file, kLonger); },
     kLonger, true},
    {"replaced by one of its size", [](const ConfFile& file) { replace(file, kSameSize); },
     kSameSize, true},
    {"replaced by an empty one", [](const ConfFile& file) { replace(file, ""); }, "", true},
    {"cut", [](const ConfFile& file) { ASSERT_EQ(truncate(file.path().c_str(), 8), 0); },
     "[a]\nkey="},
    {"emptied",
     [](const ConfFile& file) { ASSERT_EQ(truncate(file.path().c_str(), 0), 0); }, ""},
    {"added to",
     [](const ConfFile& file) {
       std::FILE* const stream = std::fopen(file.path().c_str(), "a");
       std::fputs("x=y\n", stream);
       std::fclose(stream);
     },
     "[a]\nkey=old value\nlast=1\nx=y\n"},
    {"removed", [](const ConfFile& file) { file.remove(); }, nullptr},
};

bool ends_with(const Lines& lines, const Lines& end) {
  return lines.size() >= end.size() && std::equal(end.rbegin(), end.rend(), lines.rbegin());
}

// Runs an act at one point after the other, until there are no more. Returns their number:
// it changes with the system calls that the library makes, and this test with it.
int at_each_point(const Act& act, int (*while_acting)(const Act& act, int at)) {
  for (int at = 1;; ++at) {
    SCOPED_TRACE(testing::Message() << act.name << " at point " << at);
    const int points = while_acting(act, at);
    if (points < at) return points;
  }
}

// Opens while another program acts at a point. Returns the number of points.
int open_while(const Act& act, int at) {
  const Sections before = loaded(kOld);
  const Sections after = act.text != nullptr ? loaded(act.text) : Sections();
  const ConfFile file(kOld);
  LogCapture log;
  Intruder other{at, 0, [&] { act.act(file); }};
  intruder = &other;
  GConf* const conf = g_conf_open(file.path().c_str());
  intruder = nullptr;
  if (conf == nullptr) {
    const Lines lines = log.take();
    const std::string path = "'" + file.path() + "'.";
    const std::string gone = act.text == nullptr ? "open" : "read";
    EXPECT_TRUE(
        ends_with(lines, {warning_line("g_conf", "can't read file " + path),
                          warning_line("g_conf", "can't load config file " + path)}) ||
        ends_with(lines, {warning_line("g_conf", "can't " + gone + " file " + path),
                          warning_line("g_conf", "can't load config file " + path)}))
        << testing::PrintToString(lines);
  } else {
    EXPECT_EQ(log.take(), Lines{});
    const Sections sections = content(conf);
    EXPECT_TRUE(sections == before || sections == after)
        << testing::PrintToString(sections);
    EXPECT_EQ(g_conf_close(conf), 0);
  }
  const std::string expected = other.point < at      ? kOld
                               : act.text != nullptr ? act.text
                                                     : "";
  EXPECT_EQ(file.exists() ? file.text() : "", expected);  // opening changes nothing
  return other.point;
}

TEST(ConfReplacedFile, IsLoadedWholeAsItWasOrAsItIsOrNotAtAll) {
  for (const Act& act : kActs) {
    EXPECT_EQ(at_each_point(act, open_while), 8) << act.name;
  }
}

// The moment that matters most, by itself: the size is the new file's.
TEST(ConfReplacedFile, BeforeItIsMeasuredIsReportedAsOneThatCannotBeRead) {
  const ConfFile file(kOld);
  LogCapture log;
  Intruder other{4, 0, [&] { replace(file, kShorter); }};
  intruder = &other;
  EXPECT_EQ(g_conf_open(file.path().c_str()), nullptr);
  intruder = nullptr;
  EXPECT_EQ(
      log.take(),
      (Lines{warning_line("g_conf", "can't read file '" + file.path() + "'."),
             warning_line("g_conf", "can't load config file '" + file.path() + "'.")}));
}

constexpr char kWritten[] = "[a]\nkey=changed\nlast=1\n\n";

// Syncs while another program acts at a point. Returns the number of points.
int sync_while(const Act& act, int at) {
  const ConfFile file(kOld);
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "a", "key", "changed");
  LogCapture log;
  Intruder other{at, 0, [&] { act.act(file); }};
  intruder = &other;
  g_conf_sync(conf.get());
  intruder = nullptr;
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(conf->dirty, 0);
  EXPECT_EQ(content(conf.get()), loaded(kWritten));
  if (at == 1 || other.point < at) {
    EXPECT_EQ(file.text(), kWritten);
  } else if (act.text == nullptr) {
    EXPECT_FALSE(file.exists());  // what was written is in the file that was removed
  } else if (act.replaces) {
    EXPECT_EQ(file.text(), act.text);  // and here in the one that was replaced
  }
  g_conf_write_string(conf.get(), "a", "key", "again");
  g_conf_sync(conf.get());
  EXPECT_EQ(file.text(), "[a]\nkey=again\nlast=1\n\n");
  return other.point;
}

TEST(ConfReplacedFile, DuringASyncStaysWhatTheOtherProgramMadeIt) {
  for (const Act& act : kActs) {
    EXPECT_EQ(at_each_point(act, sync_while), 6) << act.name;
  }
}

// Nothing slow happens between the open, which empties the file, and the write: a program
// that is killed in between leaves the file empty.
TEST(ConfSync, NothingIsAllocatedWhileTheFileIsEmpty) {
  const ConfFile file(kOld);
  const Conf conf = file.open();
  for (int key = 0; key < 1000; ++key) {
    g_conf_write_int(conf.get(), "many", std::to_string(key).c_str(), key);
  }
  g_conf_sync(conf.get());  // the next ones know about how much room they need
  AllocationFaults blocks(0);
  int calls_at[2];
  for (const int at : {2, 3}) {  // the lock, the write
    g_conf_write_int(conf.get(), "a", "last", at);
    blocks.resume();
    Intruder other{at, 0, [&] {
                     EXPECT_EQ(g_file_size(file.path().c_str()), 0);
                     calls_at[at - 2] = blocks.calls();
                   }};
    intruder = &other;
    const int before = blocks.calls();
    g_conf_sync(conf.get());
    intruder = nullptr;
    blocks.pause();
    calls_at[at - 2] -= before;
  }
  EXPECT_GE(calls_at[0], 1);  // the text
  EXPECT_EQ(calls_at[1], calls_at[0]);
}

}  // namespace
